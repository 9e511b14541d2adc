#include "folders.h"

#include <windows.h>

#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <vector>

#include "common/files.h"
#include "opened.h"
#include "platform/files.h"
#include "platform/text.h"
#include "platform/windows/wide.h"
#include "report.h"

namespace zorvalis {
namespace {

using platform::OwnedHandle;
using OwnedSecurity = platform::Owned<::LocalFree, PSECURITY_DESCRIPTOR>;

constexpr int kDeepest = 32;  // folders within folders; the product makes two
constexpr int kDeepestPlanted = 500;
constexpr DWORD kMend = kHold | READ_CONTROL | WRITE_DAC | WRITE_OWNER;
constexpr DWORD kMove = kMend | DELETE;

// Owner Administrators (BA); SYSTEM (SY) and administrators may do all. Users (BU) may read the outer folders, which
// other software of the maker may use. The last two are what a file and a folder inherit of the second one.
constexpr wchar_t kOuter[] = L"O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";
constexpr wchar_t kProduct[] = L"O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)";
constexpr wchar_t kFileInside[] = L"O:BAD:ARAI(A;ID;FA;;;SY)(A;ID;FA;;;BA)";
constexpr wchar_t kFolderInside[] = L"O:BAD:ARAI(A;OICIID;FA;;;SY)(A;OICIID;FA;;;BA)";

std::string Text(const std::wstring& path) {
    return platform::to_utf8(path);
}

std::wstring ProductFolder() {
    std::wstring folder = platform::to_wide(kProductFolder);
    folder.pop_back();
    return folder;
}

// The product's folder and the two above it, from the outermost.
std::array<std::wstring, 3> Folders() {
    const std::wstring product = ProductFolder();
    const std::wstring middle = product.substr(0, product.rfind(L'\\'));
    return {middle.substr(0, middle.rfind(L'\\')), middle, product};
}

// Beside the product's folder, so that neither the service nor zorvctl meets what is in it.
std::wstring AsideFolder() {
    return ProductFolder() + L"-planted";
}

OwnedSecurity SecurityOf(const wchar_t* text) {
    PSECURITY_DESCRIPTOR security = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(text, SDDL_REVISION_1, &security, nullptr)) {
        Fail("an access list cannot be made");
    }
    return OwnedSecurity(security);
}

// Changes what is open and nothing below it.
void SetSecurity(HANDLE opened, const wchar_t* text, const std::wstring& path) {
    const OwnedSecurity security = SecurityOf(text);
    if (!::SetKernelObjectSecurity(opened, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, security.get())) {
        Fail(path, "keeps its access list");
    }
}

bool IsOneOf(PSID sid, std::initializer_list<const wchar_t*> names) {
    for (const wchar_t* name : names) {
        PSID each = nullptr;
        if (::ConvertStringSidToSidW(name, &each)) {
            const platform::Owned<::LocalFree, PSID> owned(each);
            if (::EqualSid(sid, each)) {
                return true;
            }
        }
    }
    return false;
}

bool IsThisUser(PSID sid) {
    HANDLE token = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
        return false;
    }
    const OwnedHandle owned(token);
    alignas(TOKEN_USER) std::array<BYTE, 256> block;
    DWORD size = 0;
    return ::GetTokenInformation(token, TokenUser, block.data(), block.size(), &size) &&
           ::EqualSid(sid, reinterpret_cast<const TOKEN_USER*>(block.data())->User.Sid);
}

constexpr wchar_t kTrustedInstaller[] = L"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

struct Security {
    PSID owner = nullptr;
    PACL list = nullptr;
    OwnedSecurity block;
};

Security ReadSecurity(HANDLE opened, const std::wstring& path) {
    Security security;
    PSECURITY_DESCRIPTOR block = nullptr;
    const DWORD error =
        ::GetSecurityInfo(opened, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                          &security.owner, nullptr, &security.list, nullptr, &block);
    if (error != ERROR_SUCCESS) {
        Fail(Text(path) + ": its owner cannot be read", error);
    }
    security.block.reset(block);
    return security;
}

// What an administrator makes belongs to Administrators, or, by a policy, to himself.
bool IsOwnerTrusted(const Security& security) {
    return security.owner != nullptr &&
           (IsOneOf(security.owner, {L"SY", L"BA", kTrustedInstaller}) || IsThisUser(security.owner));
}

// Whether the list lets nobody but administrators change anything, as far as it can be told; if not, it is replaced.
bool IsTight(const Security& security) {
    constexpr DWORD kRead = FILE_GENERIC_READ | FILE_GENERIC_EXECUTE | GENERIC_READ | GENERIC_EXECUTE;
    if (security.list == nullptr) {
        return false;  // everybody may do all
    }
    for (DWORD i = 0; i < security.list->AceCount; ++i) {
        void* each = nullptr;
        ::GetAce(security.list, i, &each);
        auto& entry = *static_cast<ACCESS_ALLOWED_ACE*>(each);
        const bool allows = entry.Header.AceType == ACCESS_ALLOWED_ACE_TYPE;
        if (!(entry.Header.AceType == ACCESS_DENIED_ACE_TYPE ||
              (allows &&
               ((entry.Mask & ~kRead) == 0 || IsOneOf(&entry.SidStart, {L"SY", L"BA", L"CO", kTrustedInstaller}))))) {
            return false;
        }
    }
    return true;
}

struct Folder {
    OwnedHandle handle;
    bool made = false;
};

Folder MakeOrOpen(const std::wstring& path, const wchar_t* access, DWORD rights = kMend) {
    Folder folder;
    const OwnedSecurity security = SecurityOf(access);
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, security.get(), FALSE};
    if (::CreateDirectoryW(path.c_str(), &attributes)) {
        folder.made = true;
    } else if (::GetLastError() != ERROR_ALREADY_EXISTS) {
        Fail(path, "cannot be made");
    }
    folder.handle = OpenItself(path, rights);
    if (folder.handle == nullptr) {
        Fail(path, "cannot be opened");
    }
    const DWORD kind = InformationOf(folder.handle.get(), path).dwFileAttributes;
    if (IsLink(kind)) {
        Fail(Text(path) + " is a link. Look who made it, and delete it", kLinkMet);
    }
    if (!IsFolder(kind)) {
        Fail(Text(path) + " is no folder. Look who made it, and delete it", ERROR_DIRECTORY);
    }
    return folder;
}

void MoveAside(HANDLE opened, const std::wstring& path, const char* why) {
    const Folder aside = MakeOrOpen(AsideFolder(), kProduct);
    SetSecurity(aside.handle.get(), kProduct, AsideFolder());
    const std::wstring name = path.substr(path.rfind(L'\\') + 1).substr(0, 200);  // with a number it is one still
    std::wstring target;
    bool moved = false;
    for (int number = 1; !moved && number < 10000; ++number) {
        target = L"\\\\?\\" + AsideFolder() + L"\\" + std::to_wstring(number) + L"-" + name;
        const std::size_t bytes = target.size() * sizeof(wchar_t);
        std::vector<std::uint64_t> block((sizeof(FILE_RENAME_INFO) + bytes) / sizeof(std::uint64_t) + 1);
        auto& rename = *reinterpret_cast<FILE_RENAME_INFO*>(block.data());
        rename.FileNameLength = static_cast<DWORD>(bytes);
        target.copy(rename.FileName, target.size());
        moved = ::SetFileInformationByHandle(opened, FileRenameInfo, &rename,
                                             static_cast<DWORD>(sizeof(FILE_RENAME_INFO) + bytes));
        if (!moved && ::GetLastError() != ERROR_ALREADY_EXISTS) {
            break;
        }
    }
    if (!moved) {
        Fail(path, "is not as the product made it, and cannot be moved aside");
    }
    Say(Text(path) + " " + why + ": moved to " + Text(target.substr(4)));
}

void MendInside(HANDLE folder, const std::wstring& folderPath, int depth) {
    for (const Entry& entry : EntriesOf(folder, folderPath)) {
        const std::wstring& path = entry.path;
        const OwnedHandle opened = OpenItself(path, kMove);
        if (opened == nullptr) {
            Fail(path, "cannot be opened");
        }
        const BY_HANDLE_FILE_INFORMATION found = InformationOf(opened.get(), path);
        const bool isFolder = IsFolder(found.dwFileAttributes);
        if (IsLink(found.dwFileAttributes | entry.attributes)) {
            MoveAside(opened.get(), path, "is a link");
        } else if (!isFolder && found.nNumberOfLinks > 1) {
            // The other name may be that of any file: its access list must stay.
            MoveAside(opened.get(), path, "has a second name elsewhere");
        } else if (!IsOwnerTrusted(ReadSecurity(opened.get(), path))) {
            MoveAside(opened.get(), path, "belongs to an ordinary user");
        } else if (isFolder && depth == kDeepest) {
            MoveAside(opened.get(), path, "lies too deep");
        } else {
            SetSecurity(opened.get(), isFolder ? kFolderInside : kFileInside, path);
            if (isFolder) {
                MendInside(opened.get(), path, depth + 1);
            }
        }
    }
}

void Delete(HANDLE opened, const std::wstring& path, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        FILE_BASIC_INFO plain{};
        plain.FileAttributes = FILE_ATTRIBUTE_NORMAL;
        ::SetFileInformationByHandle(opened, FileBasicInfo, &plain, sizeof plain);
    }
    FILE_DISPOSITION_INFO gone = {TRUE};
    if (!::SetFileInformationByHandle(opened, FileDispositionInfo, &gone, sizeof gone)) {
        Fail(path, "cannot be deleted");
    }
}

// A folder is held while what is in it is deleted, so that nobody puts a link in its place meanwhile.
void DeleteTree(const std::wstring& path, int depth, Attempts& all) {
    all.Make([&] {
        const OwnedHandle opened = OpenIfThere(path, kHold | DELETE | FILE_WRITE_ATTRIBUTES);
        if (opened == nullptr) {
            return;
        }
        const DWORD attributes = InformationOf(opened.get(), path).dwFileAttributes;
        if (IsFolder(attributes) && depth < kDeepestPlanted && !platform::is_link(Text(path))) {
            for (const Entry& entry : EntriesOf(opened.get(), path)) {
                DeleteTree(entry.path, depth + 1, all);
            }
        }
        Delete(opened.get(), path, attributes);
    });
}

void RefuseLink() {
    if (HasLink(kProductFolder)) {
        Fail("a link or junction stands in the place of " + Text(ProductFolder()) +
                 ", or on the way to it, and is not followed. Look who made it, and delete it",
             kLinkMet);
    }
}

}  // namespace

std::vector<std::wstring> PrepareFolders() {
    TakeBackupRights();
    RefuseLink();
    const auto [first, second, product] = Folders();
    std::vector<std::wstring> made;
    std::vector<Folder> held;  // each keeps its folder in its place while those below are worked on
    const auto hold = [&](const std::wstring& path, const wchar_t* access) {
        held.push_back(MakeOrOpen(path, access));
        if (held.back().made) {
            Say("made " + Text(path));
            made.push_back(path);
        }
        return held.back().handle.get();
    };
    for (const std::wstring& path : {first, second}) {
        const HANDLE folder = hold(path, kOuter);
        const Security security = ReadSecurity(folder, path);
        const bool trusted = IsOwnerTrusted(security);
        if (!trusted || !IsTight(security)) {
            SetSecurity(folder, kOuter, path);
            Say("set the access list of " + Text(path) +
                (trusted ? ""
                         : ", which belonged to an ordinary user. A program that holds it open can change that "
                           "again: restart Windows"));
        }
    }
    HANDLE folder = hold(product, kProduct);
    if (!IsOwnerTrusted(ReadSecurity(folder, product))) {
        held.pop_back();
        MoveAside(MakeOrOpen(product, kProduct, kMove).handle.get(), product, "belongs to an ordinary user");
        folder = hold(product, kProduct);
    }
    SetSecurity(folder, kProduct, product);
    MendInside(folder, product, 1);
    return made;
}

void DeleteFolders() {
    TakeBackupRights();
    RefuseLink();
    Attempts all;
    DeleteTree(ProductFolder(), 0, all);
    DeleteTree(AsideFolder(), 0, all);
    all.Finish();
    const auto [first, second, product] = Folders();
    DeleteEmptyFolders({first, second});
}

void DeleteEmptyFolders(const std::vector<std::wstring>& folders) {
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        ::RemoveDirectoryW(folder->c_str());  // refused while something is in it
    }
}

}  // namespace zorvalis
