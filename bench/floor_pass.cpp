// floor-pass FILE: what pass-bench compares a pass with. It makes the same file operations with SQLite as a pass and
// nothing else, so a pass cannot be cheaper. For each three lines on standard input (a schema statement, a table name,
// an insert) it runs the three cycles of one sample on FILE: transform to a working copy, check, open, run, close,
// transform back.
#include <sqlite3.h>

#include <cstdio>
#include <iostream>
#include <string>

namespace {

constexpr int kKey = 0x5A;

void Copy(const std::string& from, const std::string& to) {
    std::FILE* const source = std::fopen(from.c_str(), "rb");
    if (source == nullptr) {
        return;
    }
    std::FILE* const target = std::fopen(to.c_str(), "wb+");
    for (int byte = std::getc(source); byte != EOF; byte = std::getc(source)) {
        std::putc(byte ^ kKey, target);
    }
    std::fclose(source);
    std::fclose(target);
}

void Run(const std::string& file, const std::string& sql) {
    sqlite3* db = nullptr;
    sqlite3_open(file.c_str(), &db);
    sqlite3_exec(db, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);  // the product does not wait for the disk
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        std::cerr << sqlite3_errmsg(db) << "\n";
    }
    sqlite3_close(db);
}

void Cycle(const std::string& file, const std::string& sql) {
    const std::string working = file + ".cached";
    const std::string next = working + ".temp";
    for (const std::string& stale : {working, next, working + "-journal"}) {
        std::remove(stale.c_str());
    }
    Copy(file, working);
    if (std::FILE* const resting = std::fopen(file.c_str(), "rb")) {
        std::fclose(resting);
        Run(working, "PRAGMA integrity_check");
    }
    Run(working, sql);
    Copy(working, next);
    std::remove(working.c_str());
    std::remove(file.c_str());
    std::rename(next.c_str(), file.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: floor-pass FILE < statements\n";
        return 2;
    }
    std::string create, table, insert;
    while (std::getline(std::cin, create) && std::getline(std::cin, table) && std::getline(std::cin, insert)) {
        Cycle(argv[1], create);
        Cycle(argv[1], "SELECT COUNT(*) FROM " + table);
        Cycle(argv[1], insert);
    }
    return 0;
}
