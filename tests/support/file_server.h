// The server of files and settings in a test, in plain HTTP on loopback: it keeps what it is sent, and can answer any
// call in another way than it should. While one stands, it is the server of the test's machine. Beside it, what tests
// of the upload share.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/loopback_server.h"
#include "upload/file_record.h"

class FileServer {
public:
    struct File {
        std::string md5;
        std::string bytes;
        std::size_t size = 0;
        bool finished = false;
    };

    // What a call gets in place of its answer. The server has done its work when `late`.
    struct Fault {
        Fault(int code = 200, std::string text = "", bool closes = false, bool afterWork = false)
            : status(code), body(std::move(text)), cut(closes), late(afterWork) {}

        int status;
        std::string body;
        bool cut;  // the connection closes without an answer
        bool late;
    };

    FileServer();
    ~FileServer();
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;

    // Forgets files, calls and faults.
    void reset();

    std::map<std::size_t, Fault> faults;  // by number of the call, from 0
    std::string offset;                   // JSON in place of the offset to go on from; empty for the truth
    std::string setting;                  // the answer to a query for settings

    std::map<std::string, File> files;  // by name
    std::vector<std::string> calls;     // the path of each call
    std::string body;                   // of the latest call

private:
    LoopbackAnswer Handle(const LoopbackRequest& request);
    std::string Answer(const std::string& path, const std::string& text);

    LoopbackServer server_;
};

// An answer with this status.
std::string Status(const std::string& word);

// Enters a file into the status database, by default one of long ago.
void Register(const std::string& name, std::int32_t type = 1, const std::string& date = zorvalis::kNoDate);

// Runs a statement on the status database.
void ChangeRows(const std::string& sql);

// The statements on the table of files that SQLite runs for an action, which opens its own connections.
std::vector<std::string> Executed(const std::function<void()>& action);

// Puts a folder in the place of the status database's working copy, or takes it away.
void BlockStatusDb(bool blocked);
