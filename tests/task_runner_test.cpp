// `zorvctl tasks` as a process, with small scripts as the tasks' actions.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "support/notebook.h"

namespace zorvalis {
namespace {

namespace fs = std::filesystem;

class TaskRunner : public testing::Test {
protected:
    TaskRunner() : folder_(platform::machine_folder()) { fs::create_directory(folder_ + "/tasks"); }

    // It is the second of January 2030, 10:01:30 local time.
    void StartClock() {
        const std::int64_t offset = SetClock(2030, 1, 2, 10, 1, 30) - std::time(nullptr);
        platform::set_clock({});
        write_text(folder_ + "/clock.json", "{\"offset\": " + std::to_string(offset) + ", \"wait\": 0.5}");
    }

    // The action is a script, with the machine's folder as its current one.
    void AddTask(const std::string& name, const std::string& script, const std::string& changes = "{}") {
        const std::string path = machine_.bin_folder() + name;
        write_text(path, "#!/bin/sh\ncd '" + folder_ + "'\n" + script + "\n");
        fs::permissions(path, fs::perms::all);
        Json task = {{"trigger", {{"startBoundary", "2030-01-02T10:00:00"}, {"interval", "PT5M"}}},
                     {"action", {{"path", path}, {"arguments", "-j0"}}},
                     {"executionTimeLimit", "PT14M"}};
        task.merge_patch(ParseJson(changes));
        write_text(folder_ + "/tasks/" + name + ".json", DumpJson(task));
    }

    // The output and the errors lie in the file "told".
    int Run(const std::string& arguments) const {
        return WEXITSTATUS(
            std::system((built("zorvctl") + " tasks " + arguments + " >" + folder_ + "/told 2>&1").c_str()));
    }

    std::string Told() const { return read_text(folder_ + "/told"); }
    void ExpectTold(const std::string& words) const { EXPECT_NE(Told().find(words), std::string::npos) << Told(); }
    std::size_t Lines(const std::string& file) const {
        const std::string text = read_text(folder_ + "/" + file);
        return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    }

    const TestMachine machine_;
    const std::string folder_;
};

TEST_F(TaskRunner, StartsWhatIsDueInTwoHoursWithoutWaiting) {
    StartClock();
    AddTask("often", "printf '%s|' \"$@\" >>often; echo >>often", R"({"action": {"arguments": "a \"b c\\\"\" \\d"}})");
    AddTask("later", "echo >>later", R"({"trigger": {"startBoundary": "2030-01-02T11:00:00", "interval": "PT30M"}})");
    AddTask("single", "echo >>single; exit 3",
            R"({"trigger": {"startBoundary": "2030-01-02T12:00:00", "interval": ""}})");
    AddTask("over", "echo >>over", R"({"trigger": {"startBoundary": "2030-01-02T10:01:00", "interval": null}})");
    AddTask("disabled", "echo >>disabled", R"({"enabled": false})");
    AddTask("absent", "", R"({"action": {"path": "/nowhere/absent"}, "trigger": {"interval": "PT1H"}})");
    write_text(folder_ + "/tasks/broken.json", "{");
    EXPECT_EQ(Run("list"), 1);
    for (const char* words :
         {"ready, next start in 4 minutes, 2030-01-02 10:05\n    every 5 minutes from 2030-01-02 10:00, "
          "killed after 14 minutes\n",
          "often a \"b c\\\"\" \\d\n", "ready, but over\n", "broken\n    never starts: ", "Nobody starts them now"}) {
        ExpectTold(words);
    }
    const std::int64_t before = platform::now_seconds();
    EXPECT_EQ(Run("run --for 2h --skip-waits"), 0);
    EXPECT_EQ(Lines("often"), 24U);
    EXPECT_EQ(read_text(folder_ + "/often").substr(0, 12), "a|b c\"|\\d|\na");
    EXPECT_EQ(Lines("later"), 3U);
    EXPECT_EQ(Lines("single"), 1U);
    EXPECT_FALSE(fs::exists(folder_ + "/over") || fs::exists(folder_ + "/disabled"));
    ExpectTold("30 starts, 3 failed, 0 left out\n");
    ExpectTold("single: ended with exit code 3");
    ExpectTold("2030-01-02 11:00:00  absent: cannot start /nowhere/absent: No such file or directory\n");
    EXPECT_GE(platform::now_seconds(), before + 7200);
    EXPECT_LT(platform::now_seconds(), before + 7260);
    EXPECT_EQ(ParseJson(read_text(folder_ + "/clock.json"))["wait"], 0.5);
}

TEST_F(TaskRunner, GoesByTheDefinitionThatAPassHasWritten) {
    StartClock();
    AddTask("pass", R"(echo >>passes
        sed 's/2030-01-02T10:00:00/2030-01-03T00:17:00/' tasks/pass.json >tasks/.new && mv tasks/.new tasks/pass.json)");
    EXPECT_EQ(Run("run --until '2030-01-03 00:20' --skip-waits"), 0);
    ExpectTold("2030-01-02 10:05:00  pass: next start 2030-01-03 00:17:00\n");
    EXPECT_EQ(Lines("passes"), 2U);
}

}  // namespace
}  // namespace zorvalis
