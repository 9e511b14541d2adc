// hardware.json: what the stand-in library answers. The file is read at each call that needs an answer, never at
// initialising, so a change shows at once. It is the machine's own (ZORV_MACHINE; on Linux else the user's machine),
// or else the one beside the library.
//
// One JSON object; its members are named by the exports:
//
//   "Thermal_Read_Cpu_Temperature": 48          a number, a text, true or false is the answer
//   "Thermal_Read_Fan": {"value": "2410"}       so is "value" of an object, which may also hold
//       "fail": true        the failure of the call's shape: all bits set for integers and bytes (4294967295, 255),
//                           -1 for floating point, nothing written for texts, status -1 for records and setters
//       "missing": true     as if the library had no such export: 0, nothing written, status 1 for records
//       "flag0": ...        another answer, of any of these forms, for calls whose flag byte is 0
//       "result": n         the status returned by a setter or a record's call
//       "source": "host"    see below, for this member alone ("file" takes it back)
//
// A member that is absent, of the wrong type, or in a file that is not one faultless object is like "missing".
// Integers are taken modulo 2^32. Texts end after 149 characters.
//
//   "source": "host"        the Linux host's own answer where host_linux.h has one, else the file's; members that
//                           are absent, fail or are missing stay so. On Windows the file answers always.
//   "hostRoot": "/folder"   where /sys, /proc and /etc of that host are found; for trying another machine's tree
//
// Non-volatile storage: "GPNV_RandomUUID", "GPNV_ActivatedTime", "GPNV_ManufacturedTime" hold "blank" (bytes 0xFF),
// "fail" (reading and writing return status -1 and touch nothing) or the value, a UUID or "2021-03-05 10:20:30".
// A member named by one of their six exports makes that call alone fail, go missing or return another status.
//
// What is set is written into the file, the rest of which stays as it is: the storage members, "WMIGetBatteryHealth",
// "WMIGetQuietFan" and "WMISetAppPath" (the folder's path itself). A member that is absent is not made: its setter is
// then like "missing". A setter returns 1, one of a record 0; a number in a member of the setter's name replaces it.
#pragma once

#include <cstdint>
#include <string_view>

#include "file_text.h"
#include "line.h"

namespace zorvalis {

struct Answer {
    enum class Kind { absent, missing, failed, given };
    Kind kind = Kind::absent;
    std::string_view value;  // empty unless given
    bool bare = false;       // it is the host's words, which are no JSON
    std::string_view result;
};

class HardwareFile {
public:
    explicit HardwareFile(FileText::Purpose purpose = FileText::Purpose::read) : file_(purpose) {}

    // The result points into this object and holds until the next call.
    Answer Ask(std::string_view name, std::uint8_t flag = 1);

    enum class Stored { done, absent, failed };

    // Puts `json` in the place of a member's value, once, in a file opened for change.
    Stored Store(std::string_view member, std::string_view json);

private:
    FileText file_;
    Line host_;
};

}  // namespace zorvalis
