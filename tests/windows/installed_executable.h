// The built executable on a notebook of its own, with the doubles beside it, installed as a service until the end of a
// test: Wine hands a handle for statuses only to a service of its manager.
#pragma once

#include <gtest/gtest.h>

#include "support/notebook.h"
#include "windows/service_process.h"

class InstalledExecutable : public testing::Test {
protected:
    InstalledExecutable() { Run("-install"); }
    ~InstalledExecutable() override { Run("-remove"); }

    // Runs it to its end; the result is what it printed.
    std::string Run(const std::string& arguments) {
        EXPECT_EQ(WatchedProcess(path, arguments).wait(), 0U) << arguments;
        std::string output = read_text(machine.bin_folder() + "output.txt");
        std::erase(output, '\r');
        return output;
    }

    Notebook machine;
    const std::string path = machine.install_service();
    Doubles doubles{machine.bin_folder()};
};
