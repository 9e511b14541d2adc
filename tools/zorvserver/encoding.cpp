#include "encoding.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <vector>

namespace zorvalis {

namespace {

std::string Hexadecimal(const unsigned char* bytes, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += "0123456789abcdef"[bytes[i] >> 4];
        text += "0123456789abcdef"[bytes[i] & 15];
    }
    return text;
}

class Md5 {
public:
    Md5() : context_(EVP_MD_CTX_new(), EVP_MD_CTX_free) {
        if (context_ == nullptr || EVP_DigestInit_ex(context_.get(), EVP_md5(), nullptr) != 1) {
            throw std::runtime_error("this OpenSSL has no MD5");
        }
    }
    void Add(const char* bytes, std::size_t size) { EVP_DigestUpdate(context_.get(), bytes, size); }
    std::string Value() {
        unsigned char digest[EVP_MAX_MD_SIZE];
        unsigned int size = 0;
        EVP_DigestFinal_ex(context_.get(), digest, &size);
        return Hexadecimal(digest, size);
    }

private:
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context_;
};

int Base64Value(char c) {
    static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t place = kAlphabet.find(c);
    return place == std::string_view::npos ? -1 : static_cast<int>(place);
}

}  // namespace

std::string Md5OfText(std::string_view bytes) {
    Md5 md5;
    md5.Add(bytes.data(), bytes.size());
    return md5.Value();
}

std::string Md5OfFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    Md5 md5;
    std::vector<char> block(1 << 16);
    while (file) {
        file.read(block.data(), static_cast<std::streamsize>(block.size()));
        md5.Add(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.eof()) {
        throw std::runtime_error(path.string() + " cannot be read");
    }
    return md5.Value();
}

bool IsMd5(std::string_view text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    std::string bytes;
    bytes.reserve(text.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text.substr(0, text.size() - padding)) {
        const int value = Base64Value(c);
        if (value < 0) {
            return std::nullopt;
        }
        bits = bits << 6 | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    const bool strayBits = (bits & ((1U << count) - 1)) != 0;
    return strayBits ? std::nullopt : std::optional(bytes);
}

std::string NewUuid() {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1) {
        throw std::runtime_error("no random numbers");
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    std::string text = Hexadecimal(bytes, sizeof bytes);
    for (const std::size_t place : {8U, 13U, 18U, 23U}) {
        text.insert(place, "-");
    }
    return text;
}

}  // namespace zorvalis
