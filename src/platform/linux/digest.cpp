#include "platform/digest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/error.h"
#include "platform/files.h"
#include "platform/linux/late_library.h"
#include "platform/linux/machine_file.h"

namespace platform {
namespace {

constexpr std::uint32_t kNoProvider = 0x8009001D;  // NTE_PROVIDER_DLL_FAIL
constexpr std::uint32_t kBadHash = 0x80090002;     // NTE_BAD_HASH

struct Crypto {
    decltype(EVP_MD_CTX_new)* context_new;
    decltype(EVP_MD_CTX_free)* context_free;
    decltype(EVP_md5)* md5;
    decltype(EVP_DigestInit_ex)* init;
    decltype(EVP_DigestUpdate)* update;
    decltype(EVP_DigestFinal_ex)* final;
    bool complete;
};

const Crypto& crypto() {
    static const Crypto kCrypto = [] {
        const LateLibrary library("libcrypto.so.3");
        Crypto found{};
        found.complete =
            library.find(found.context_new, "EVP_MD_CTX_new") && library.find(found.context_free, "EVP_MD_CTX_free") &&
            library.find(found.md5, "EVP_md5") && library.find(found.init, "EVP_DigestInit_ex") &&
            library.find(found.update, "EVP_DigestUpdate") && library.find(found.final, "EVP_DigestFinal_ex");
        return found;
    }();
    return kCrypto;
}

bool succeeded(bool success, std::uint32_t error) {
    if (!success) {
        set_last_error(error);
    }
    return success;
}

}  // namespace

struct Md5::State {
    EVP_MD_CTX* context = nullptr;
};

Md5::Md5() : state_(new State) {}

Md5::~Md5() {
    if (state_->context != nullptr) {
        crypto().context_free(state_->context);
    }
    delete state_;
}

bool Md5::acquire_provider() {
    return succeeded(crypto().complete, kNoProvider);
}

bool Md5::create_hash() {
    state_->context = crypto().context_new();
    return succeeded(state_->context != nullptr && crypto().init(state_->context, crypto().md5(), nullptr) == 1,
                     kBadHash);
}

bool Md5::add(const void* data, std::size_t size) {
    return succeeded(crypto().update(state_->context, data, size) == 1, kBadHash);
}

bool Md5::value(std::array<std::uint8_t, 16>& digest) {
    unsigned int length = 0;
    return succeeded(crypto().final(state_->context, digest.data(), &length) == 1 && length == digest.size(), kBadHash);
}

InputFile::~InputFile() {
    if (handle_ >= 0) {
        ::close(static_cast<int>(handle_));
    }
}

bool InputFile::open(const std::string& path) {
    const std::string name = native_path(path);
    const int file = retry([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC); });
    handle_ = file;
    struct stat status {};
    if (file >= 0 && ::fstat(file, &status) == 0 && S_ISDIR(status.st_mode)) {
        return succeeded(false, windows_error(EISDIR));  // a folder opens for reading here
    }
    return succeeded(file >= 0, windows_error(errno));
}

bool InputFile::read(void* buffer, std::size_t size, std::size_t& count) {
    const ssize_t got = retry([&] { return ::read(static_cast<int>(handle_), buffer, size); });
    count = got > 0 ? static_cast<std::size_t>(got) : 0;
    return succeeded(got >= 0, windows_error(errno));
}

}  // namespace platform
