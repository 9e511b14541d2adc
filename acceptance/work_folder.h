// A folder for what steps of group 7 make, C:\ProgramData\zorv-acceptance. It is deleted with its object.
#pragma once

#include <string>

namespace zorvalis::acceptance {

class WorkFolder {
public:
    WorkFolder();  // throws when it cannot be made
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    // A path in it; without a name its own, which ends without a backslash.
    static std::string Path(const std::string& name = "");

    // A folder in it that everybody may write to. Throws when it cannot be made.
    static std::string MakeOpen(const std::string& name);
};

// Deletes the folder, or another, with all that is in it, but follows no link. It may be missing.
void RemoveWorkFolder();
void RemoveFolder(const std::string& path);

// A file with that text. False when it cannot be written.
bool WriteText(const std::string& path, const std::string& text);
std::string ReadText(const std::string& path);

}  // namespace zorvalis::acceptance
