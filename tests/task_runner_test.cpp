// `zorvctl tasks` as a process, with small scripts as the tasks' actions.
#include <gtest/gtest.h>

#include <algorithm>
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
    AddTask("disabled", "echo >>disabled", R"({"enabled": false})");
    const std::int64_t before = platform::now_seconds();
    const ToolResult result = run_zorvctl("tasks run --for 2h --skip-waits");
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(Lines("often"), 24U);
    EXPECT_EQ(read_text(folder_ + "/often").substr(0, 12), "a|b c\"|\\d|\na");
    EXPECT_EQ(Lines("later"), 3U);
    EXPECT_EQ(Lines("single"), 1U);
    EXPECT_FALSE(fs::exists(folder_ + "/disabled"));
    EXPECT_TRUE(result.output.ends_with("28 starts, 1 failed, 0 left out\n")) << result.output;
    EXPECT_GE(platform::now_seconds(), before + 7200);
    EXPECT_LT(platform::now_seconds(), before + 7260);
}

TEST_F(TaskRunner, GoesByTheDefinitionThatAPassHasWritten) {
    StartClock();
    AddTask("pass", R"(echo >>passes
        sed 's/2030-01-02T10:00:00/2030-01-03T00:17:00/' tasks/pass.json >tasks/.new && mv tasks/.new tasks/pass.json)");
    EXPECT_EQ(run_zorvctl("tasks run --until '2030-01-03 00:20' --skip-waits").code, 0);
    EXPECT_EQ(Lines("passes"), 2U);
}

}  // namespace
}  // namespace zorvalis
