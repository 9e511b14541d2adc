#include "platform/digest.h"

#include <windows.h>

#include <wincrypt.h>

#include "platform/windows/busy_file.h"
#include "platform/windows/wide.h"

namespace platform {
namespace {

HANDLE as_handle(std::intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

}  // namespace

struct Md5::State {
    HCRYPTPROV provider = 0;
    HCRYPTHASH hash = 0;
};

Md5::Md5() : state_(new State) {}

Md5::~Md5() {
    if (state_->hash != 0) {
        ::CryptDestroyHash(state_->hash);
    }
    if (state_->provider != 0) {
        ::CryptReleaseContext(state_->provider, 0);
    }
    delete state_;
}

bool Md5::acquire_provider() {
    return ::CryptAcquireContextW(&state_->provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT) != FALSE;
}

bool Md5::create_hash() {
    return ::CryptCreateHash(state_->provider, CALG_MD5, 0, 0, &state_->hash) != FALSE;
}

bool Md5::add(const void* data, std::size_t size) {
    return ::CryptHashData(state_->hash, static_cast<const BYTE*>(data), static_cast<DWORD>(size), 0) != FALSE;
}

bool Md5::value(std::array<std::uint8_t, 16>& digest) {
    DWORD size = static_cast<DWORD>(digest.size());
    return ::CryptGetHashParam(state_->hash, HP_HASHVAL, digest.data(), &size, 0) != FALSE;
}

InputFile::~InputFile() {
    if (as_handle(handle_) != INVALID_HANDLE_VALUE) {
        ::CloseHandle(as_handle(handle_));
    }
}

bool InputFile::open(const std::string& path) {
    const std::wstring name = to_wide(path);
    return done_in_time(name, [&] {
        // Shared as the files of the C library are.
        handle_ = reinterpret_cast<std::intptr_t>(::CreateFileW(name.c_str(), GENERIC_READ,
                                                                FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                                                OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
        return as_handle(handle_) != INVALID_HANDLE_VALUE;
    });
}

bool InputFile::read(void* buffer, std::size_t size, std::size_t& count) {
    DWORD read = 0;
    const bool done = ::ReadFile(as_handle(handle_), buffer, static_cast<DWORD>(size), &read, nullptr) != FALSE;
    count = read;
    return done;
}

}  // namespace platform
