// A full disk: a small virtual one, which diskpart makes and takes away.
#include <windows.h>

#include <string>

#include "common/files.h"
#include "kit.h"
#include "platform/files.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "steps_machine.h"
#include "store/db_file.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

std::string Image() {
    return WorkFolder::Path("zorv-acceptance.vhd");
}

// Runs diskpart's commands; it stops at the first that fails.
Ended DiskPart(const std::string& commands) {
    const std::string script = WorkFolder::Path("diskpart.txt");
    WriteText(script, commands);
    char folder[MAX_PATH] = {};
    ::GetSystemDirectoryA(folder, MAX_PATH);
    return RunProgram(Quoted(std::string(folder) + "\\diskpart.exe") + " /s " + Quoted(script), 60);
}

void Detach() {
    if (platform::file_exists(Image())) {
        DiskPart("select vdisk file=\"" + Image() + "\"\r\ndetach vdisk\r\n");
    }
    RemoveWorkFolder();
}

std::string FreeDrive() {
    for (char letter = 'Z'; letter > 'D'; --letter) {
        if ((::GetLogicalDrives() & (1u << (letter - 'A'))) == 0) {
            return std::string(1, letter) + ":";
        }
    }
    return "";
}

// Leaves not one byte free for new data.
void Fill(const std::string& path) {
    const platform::File file = platform::open_file(path, "wb");
    for (std::size_t size = 1 << 20; file != nullptr && size != 0;) {
        if (std::fwrite(std::string(size, 'x').data(), 1, size, file.get()) != size || std::fflush(file.get()) != 0) {
            std::clearerr(file.get());
            size /= 2;
        }
    }
}

void FullDisk(Findings& findings) {
    Detach();
    const WorkFolder folder;
    const std::string drive = FreeDrive();
    if (drive.empty()) {
        findings.Impossible("no letter is free for a drive");
    }
    struct Detached {
        const std::string root;
        ~Detached() {
            ::DeleteVolumeMountPointW(platform::to_wide(root).c_str());  // else Windows remembers the letter
            Detach();
        }
    } const detached{drive + "\\"};
    const Ended made = DiskPart("create vdisk file=\"" + Image() +
                                "\" maximum=64 type=fixed\r\nattach vdisk\r\ncreate partition primary\r\n"
                                "format fs=ntfs label=zorv-acceptance quick\r\nassign letter=" +
                                drive.substr(0, 1) + "\r\n");
    if (!made.started || made.code != 0 || !platform::folder_exists(drive + "\\")) {
        findings.Impossible("diskpart makes no virtual disk: " +
                            (made.started ? std::to_string(made.code) + " " + made.output : ErrorText(made.code)));
    }
    const std::string oldText(200000, 'o');
    const std::string settings = drive + "\\setting.json";
    TelemetryDb database;
    database.path = drive + "\\zorv-acceptance.db";
    const bool prepared = platform::replace_text(settings, oldText) && WriteText(database.path, oldText) &&
                          decryptDBFast(database, kDbKey);
    findings.Expect(prepared, "there is room at first");
    Fill(drive + "\\filler");
    ULARGE_INTEGER free = {};
    ::GetDiskFreeSpaceExW(platform::to_wide(drive + "\\").c_str(), &free, nullptr, nullptr);
    findings.Saw(std::to_string(free.QuadPart) + " bytes are free");
    const std::string longText(4 << 20, 'n');
    findings.Expect(!platform::replace_text(drive + "\\new.json", longText), "a new text is not written");
    findings.Expect(!platform::file_exists(drive + "\\new.json"), "and leaves no file");
    encryptDBFast(database, kDbKey);
    findings.Expect(ReadText(database.path) == oldText, "a database that cannot be written back stays as it was");
    findings.Expect(!platform::replace_text(settings, longText) && !platform::file_exists(settings),
                    "settings that do not fit in the place of the old ones are deleted, and not cut short");
}

}  // namespace

std::vector<Step> DiskSteps() {
    return {{"7.13", "A full disk leaves no half of a file", FullDisk, 150, Detach, false}};
}

}  // namespace zorvalis::acceptance
