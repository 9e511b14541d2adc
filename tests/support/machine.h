// A fresh machine for one test, on both sides: a new stand-in machine in a temporary folder, or the machine itself with
// the product's keys and data taken away. Tests that use it run one after the other.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

class TestMachine {
public:
    TestMachine();
    ~TestMachine();
    TestMachine(const TestMachine&) = delete;
    TestMachine& operator=(const TestMachine&) = delete;

    // The folder of the executable, with its closing separator: the module path lies in it, under the product's name.
    const std::string& bin_folder() const { return bin_folder_; }

    // The path of the product's executable in it, which need not be there.
    std::string executable() const;

    // Copies the built stand-in hardware library into the folder of the executable.
    void install_library();

    // hardware.json beside the library, setting.json in the product's folder, default.json beside the executable.
    void hardware(const std::string& json);
    void setting(const std::string& text);
    void default_setting(const std::string& text);

    // Set up long ago, so that collecting may begin.
    void ready();

    // The names in the data folder, sorted.
    std::vector<std::string> data_files() const;

    // Runs a query on a resting file of the data folder, which stays as it is. A row of texts for each row, "NULL" for
    // a null; a failure is one row of one text, SQLite's own.
    std::vector<std::vector<std::string>> query(const std::string& file, const std::string& sql) const;

private:
    std::string folder_;
    std::string bin_folder_;
};

// The path of a built program or library, which lie in ../bin from the test program.
std::string built(const std::string& name);

// Runs a zorvctl, the built one unless another is named; the paths of what it prints lie in the folder of the
// executable meanwhile.
struct ToolResult {
    int code;
    std::string output, errors;
};
ToolResult run_zorvctl(const std::string& arguments, const std::string& tool = built("zorvctl"));

// Whether the condition holds within 20 seconds.
template <class Condition>
bool Comes(Condition condition) {
    for (int tries = 0; tries < 4000; ++tries) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}

// Whole files by the path that the platform floor takes.
void write_text(const std::string& path, const std::string& text);
std::string read_text(const std::string& path);
