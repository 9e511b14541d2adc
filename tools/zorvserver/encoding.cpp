// By OpenSSL.
#include "encoding.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <stdexcept>

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

}  // namespace

std::string Md5OfText(std::string_view bytes) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest, &size, EVP_md5(), nullptr) != 1) {
        throw std::runtime_error("this OpenSSL has no MD5");
    }
    return Hexadecimal(digest, size);
}

bool IsMd5(std::string_view text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    const auto unsignedBytes = [](auto* bytes) { return reinterpret_cast<unsigned char*>(bytes); };
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with("=") ? 1 : 0;
    std::string bytes(text.size() / 4 * 3, '\0'), again(text.size() + 1, '\0');
    const int size = EVP_DecodeBlock(unsignedBytes(bytes.data()), reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    if (size < static_cast<int>(padding)) {
        return std::nullopt;
    }
    bytes.resize(static_cast<std::size_t>(size) - padding);
    // OpenSSL also takes what no encoder writes: blanks around the text and stray bits.
    EVP_EncodeBlock(unsignedBytes(again.data()), unsignedBytes(bytes.data()), static_cast<int>(bytes.size()));
    again.pop_back();
    return again == text ? std::optional(bytes) : std::nullopt;
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
