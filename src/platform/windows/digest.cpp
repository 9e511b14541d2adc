// The digest by CryptoAPI, a kilobyte at a time.
#include "platform/digest.h"

#include <windows.h>

#include <wincrypt.h>

#include "platform/windows/busy_file.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

constexpr DWORD kBlock = 1024;

struct Handles {
    HANDLE file = INVALID_HANDLE_VALUE;
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;

    Handles() = default;
    Handles(const Handles&) = delete;
    Handles& operator=(const Handles&) = delete;
    ~Handles() {
        if (hash != 0) {
            ::CryptDestroyHash(hash);
        }
        if (provider != 0) {
            ::CryptReleaseContext(provider, 0);
        }
        if (file != INVALID_HANDLE_VALUE) {
            ::CloseHandle(file);
        }
    }

    bool open(const std::string& path) {
        const std::wstring name = to_wide(path);
        return done_in_time(name, [&] {
            // With the sharing of the C library: a file that it has open for writing elsewhere opens here too.
            file = ::CreateFileW(name.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                 FILE_ATTRIBUTE_NORMAL, nullptr);
            return file != INVALID_HANDLE_VALUE;
        });
    }
};

}  // namespace

DigestResult md5_of_file(const std::string& path) {
    DigestResult result;
    const auto did = [&result](DigestStep step, bool done) {
        result.step = step;
        result.error = done ? 0 : ::GetLastError();
        return done;
    };
    Handles handles;
    if (!did(DigestStep::open, handles.open(path)) ||
        !did(DigestStep::acquire_provider,
             ::CryptAcquireContextW(&handles.provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) ||
        !did(DigestStep::create_hash, ::CryptCreateHash(handles.provider, CALG_MD5, 0, 0, &handles.hash))) {
        return result;
    }
    std::array<BYTE, kBlock> block;
    for (DWORD count = kBlock; count != 0;) {
        if (!did(DigestStep::read, ::ReadFile(handles.file, block.data(), kBlock, &count, nullptr)) ||
            (count != 0 && !did(DigestStep::add, ::CryptHashData(handles.hash, block.data(), count, 0)))) {
            return result;
        }
    }
    std::array<std::uint8_t, 16> digest{};
    DWORD size = static_cast<DWORD>(digest.size());
    if (did(DigestStep::value, ::CryptGetHashParam(handles.hash, HP_HASHVAL, digest.data(), &size, 0))) {
        result.digest = digest;
    }
    return result;
}

}  // namespace platform
