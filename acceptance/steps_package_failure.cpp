// An upgrade whose last step fails, when the older package's files are replaced and the package itself is removed.
#include <windows.h>

#include "common/version.h"
#include "kit.h"
#include "package.h"
#include "package_copy.h"
#include "package_state.h"
#include "product_service.h"
#include "steps_package.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

constexpr char kMarked[] = "LICENSE before the upgrade that fails";
constexpr char kMark[] = "\r\nzorv-acceptance\r\n";

std::string MarkedFile() {
    return ProgramFolder() + "\\LICENSE";
}

// Both packages have the same files; by the mark the older one's can be told from the newer one's.
class Mark {
public:
    Mark() {
        Keep(kMarked, ReadText(MarkedFile()));
        WriteText(MarkedFile(), Kept(kMarked) + kMark);
    }
    ~Mark() { PutMarkedFileBack(); }
    Mark(const Mark&) = delete;
    Mark& operator=(const Mark&) = delete;
};

}  // namespace

void TakesUpgradeBack(Findings& findings) {
    NeedOwnInstallation(findings);
    const auto programs = InstalledPrograms();
    if (programs.size() != 1 || programs[0].version == kServiceVersion) {
        findings.Impossible("the older package is not installed");
    }
    const WorkFolder folder;
    const std::string copy = WorkFolder::Path("fails.msi");
    if (const unsigned long error = CopyThatFails(NewPackage(), copy); error != ERROR_SUCCESS) {
        findings.Fail("a copy of the package can be changed: " + ErrorText(error));
    }
    if (IsWine()) {  // it would leave an installation that is broken
        findings.Impossible("Wine's installer does not keep the files that it replaces");
    }
    const Mark mark;
    const std::string text = ReadText(MarkedFile());
    const auto records = Records(), settings = Settings();
    const auto before = StatusOf(OpenProduct(SERVICE_QUERY_STATUS).get());  // an open service could not be deleted
    const std::size_t logged = SetupLog().size();
    ExpectInstaller(findings, InstallFailure(), "/i", copy);
    findings.Expect(SetupLog().substr(logged).find(std::string(kServiceVersion) + " fail") != std::string::npos,
                    "it was the last step that failed");
    findings.Expect(!records.empty(), std::to_string(records.size()) + " files were below the data folder");
    ExpectSame(findings, records, Records(), "the files below the data folder are as they were, byte by byte");
    ExpectSame(findings, settings, Settings(), "the values of the product's key are as they were");
    findings.Expect(ReadText(MarkedFile()) == text, MarkedFile() + " is the older package's again");
    ExpectFiles(findings, {"ZorvWinIo64.dll", "hardware.json"});
    ExpectOneProgram(findings);
    findings.ExpectText(InstalledCode(), programs[0].key, "the package that is installed");
    ExpectServiceEntry(findings);
    ExpectEventSource(findings);
    ExpectPath(findings);
    findings.Expect(before && WaitForState(OpenProduct(SERVICE_QUERY_STATUS).get(), before->dwCurrentState, 30),
                    "the service's state is that of before");
}

void PutMarkedFileBack() {
    if (const std::string text = Kept(kMarked); !text.empty()) {
        WriteText(MarkedFile(), text);
        Forget(kMarked);
        RemoveWorkFolder();
    }
}

}  // namespace zorvalis::acceptance
