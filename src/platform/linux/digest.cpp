// The digest by libcrypto. CryptoAPI's provider and hash become its library and context.
#include "platform/digest.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "platform/files.h"
#include "platform/linux/late_library.h"
#include "platform/linux/windows_error.h"
#include "platform/stand_in/descriptor.h"

namespace platform {
namespace {

constexpr std::size_t kBlock = 16384;
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

// Linux opens a folder for reading, Windows does not: so a folder is refused here.
Descriptor open_input(const std::string& path) {
    const std::string name = native_path(path);
    Descriptor file(retry([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC); }));
    struct stat status {};
    if (file && ::fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        return {};
    }
    return file;
}

}  // namespace

DigestResult md5_of_file(const std::string& path) {
    DigestResult result;
    const auto did = [&result](DigestStep step, bool done, std::uint32_t error) {
        result.step = step;
        result.error = done ? 0 : error;
        return done;
    };
    const Descriptor file = open_input(path);
    if (!did(DigestStep::open, static_cast<bool>(file), windows_error(errno)) ||
        !did(DigestStep::acquire_provider, crypto().complete, kNoProvider)) {
        return result;
    }
    const std::unique_ptr<EVP_MD_CTX, decltype(crypto().context_free)> context(crypto().context_new(),
                                                                               crypto().context_free);
    if (!did(DigestStep::create_hash, context != nullptr && crypto().init(context.get(), crypto().md5(), nullptr) == 1,
             kBadHash)) {
        return result;
    }
    std::array<char, kBlock> block;
    for (ssize_t count = 1; count != 0;) {
        count = retry([&] { return ::read(file.get(), block.data(), block.size()); });
        if (!did(DigestStep::read, count >= 0, windows_error(errno)) ||
            !did(DigestStep::add, crypto().update(context.get(), block.data(), static_cast<std::size_t>(count)) == 1,
                 kBadHash)) {
            return result;
        }
    }
    std::array<std::uint8_t, 16> digest{};
    if (did(DigestStep::value, crypto().final(context.get(), digest.data(), nullptr) == 1, kBadHash)) {
        result.digest = digest;
    }
    return result;
}

}  // namespace platform
