// hardware.json: what the stand-in library answers. Each call that needs an answer reads the file, so a change shows at
// once. It is the one in the machine's folder (ZORV_MACHINE; on Linux else the user's machine), or else the one beside
// the library.
//
// One JSON object; its members are named by the exports:
//
//   "Thermal_Read_Cpu_Temperature": 48          a number, a text, true or false is the answer
//   "Thermal_Read_Fan": {"value": "2410"}       an object's "value" is the answer; the object may also hold
//       "fail": true        the call fails in its way: all bits set for integers and bytes (4294967295, 255), -1 for
//                           floating point, nothing written for texts, status -1 for records and setters
//       "missing": true     as if the library lacked the export: 0, nothing written, status 1 for records
//       "flag0": ...        another answer, in any of these forms, for calls whose flag byte is 0
//       "result": n         the status that a setter or a record's call returns
//       "source": "host"    see below, for this member alone ("file" undoes it)
//
// A member that is absent or of the wrong type, or any member of a file that is not valid JSON, is like "missing".
// Integers are taken modulo 2^32. Texts end after 149 characters.
//
//   "source": "host"        the Linux host answers where host_linux.h can, else the file; members that are absent,
//                           fail or are missing stay so. On Windows the file always answers.
//   "hostRoot": "/folder"   where /sys, /proc and /etc of the host are found; for trying another machine's tree
//
// Non-volatile storage: "GPNV_RandomUUID", "GPNV_ActivatedTime", "GPNV_ManufacturedTime" hold "blank" (bytes 0xFF),
// "fail" (reading and writing return status -1 and change nothing) or the value, a UUID or "2021-03-05 10:20:30". A
// member with the name of one of their six exports makes that call alone fail, go missing or return another status.
//
// Setters write into the file and change nothing else in it: the storage members, "WMIGetBatteryHealth",
// "WMIGetQuietFan" and "WMISetAppPath" (the folder's path itself). If the member is absent, the setter behaves as if it
// were "missing" itself. A setter returns 1, one of a record 0, or the number in a member of the setter's own name.
#pragma once

#include <cstdint>
#include <string_view>

#include "file_text.h"
#include "line.h"

namespace zorvalis {

struct Answer {
    enum class Kind { absent, missing, failed, given };
    Kind kind = Kind::absent;
    std::string_view value;   // empty unless given
    bool bare = false;        // plain text of the host, not a JSON value
    std::string_view result;  // the "result" member, raw; empty when there is none
};

class HardwareFile {
public:
    explicit HardwareFile(FileText::Purpose purpose = FileText::Purpose::read) : file_(purpose) {}

    // The answer for an export. It points into this object and is valid until the next Ask.
    Answer Ask(std::string_view name, std::uint8_t flag = 1);

    enum class Stored { done, absent, failed };

    // Replaces a member's value by `json` in the file, which must have been opened for change. To be called once: the
    // text in memory stays the old one. `absent` when there is no such member.
    Stored Store(std::string_view member, std::string_view json);

private:
    FileText file_;
    Line host_;
};

}  // namespace zorvalis
