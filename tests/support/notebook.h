// What the tests of the core share: a notebook on which collecting may begin, ways to look at what was left there, and
// the headers that nearly all of them need.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/text.h"
#include "common/files.h"
#include "common/registry.h"
#include "jobs/job_manager.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/machine.h"
#include "support/machine.h"

// Ready, with the library in place, hardware that answers a little, and a stored setting file that has every key.
class Notebook : public TestMachine {
public:
    Notebook();

    // Merge `changes` into the usual file; a null takes a member away. The settings are loaded at once.
    void change_hardware(const std::string& changes);
    void change_setting(const std::string& changes);

    // Puts a library that lacks almost every export in the place of the hardware library, or none.
    void replace_library();
    void remove_library();

    // Copies the built service into the folder of the executable; the result is its path.
    std::string install_service();

    // Which tables of which files hold how many rows: "O Thermal 1, E UserBehavior 2".
    std::string stored() const;

    // The first row of a query on this month's file of a class, joined with blanks.
    std::string row(const char* letter, const std::string& sql) const;
};

// The name of this month's file of a class.
std::string FileOf(const std::string& letter);

// A text under the product's key.
std::wstring Value(const std::wstring& name);
void SetValue(const std::wstring& name, const std::wstring& text);
void RemoveValue(const std::wstring& name);

// The one of this process.
zorvalis::JobManager& Jobs();

// From now on it is that local time; the result is its epoch.
std::int64_t SetClock(int year, int month, int day, int hour = 12, int minute = 0, int second = 0);

// The time zone of this process, in the form of TZ that both C libraries read; as before when the object ends.
class TimeZone {
public:
    explicit TimeZone(const std::string& zone);
    ~TimeZone() { Set(before_); }
    TimeZone(const TimeZone&) = delete;
    TimeZone& operator=(const TimeZone&) = delete;

    static void Set(const std::string& zone);

private:
    std::string before_;
};

// Expects these entries since the machine was made, by their second text; a final "*" stands for any rest. Wine keeps
// no event log: there it checks nothing.
void ExpectEventLog(const std::vector<std::string>& texts);
