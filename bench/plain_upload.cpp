// plain-upload HOST ADDRESS CA FILE NAME [resume]: what upload-bench compares an upload with. It sends FILE to the
// server under NAME as the product does, in the same pieces, with the same requests and headers and a connection for
// each. It keeps no status row and no chunk file. With "resume" connections resume the TLS session of those before
// them, and an upload cannot be cheaper; without, each makes a whole handshake. CA is the certificate of the server's
// authority.
#include <curl/curl.h>
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace {

constexpr std::size_t kChunk = 16384;

std::string host, address, authority;  // as on the command line
CURLSH* sessions = nullptr;            // the TLS sessions that are resumed

[[noreturn]] void Fail(const std::string& text) {
    std::fprintf(stderr, "plain-upload: %s\n", text.c_str());
    std::exit(1);
}

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* text) {
    static_cast<std::string*>(text)->append(bytes, size * count);
    return size * count;
}

// One request: a GET when the body is empty, else a POST. An answer without "OK" ends the program.
std::string Call(const std::string& path, const std::string& body) {
    CURL* const easy = curl_easy_init();
    std::string answer;
    curl_slist* headers = curl_slist_append(nullptr, body.empty() ? "Content-Type:" : "Content-Type: application/json");
    headers = curl_slist_append(headers, "Accept:");
    headers = curl_slist_append(headers, "Expect:");
    curl_slist* const route = curl_slist_append(nullptr, (host + ":443:" + address).c_str());
    curl_easy_setopt(easy, CURLOPT_URL, ("https://" + host + ":443" + path).c_str());
    curl_easy_setopt(easy, CURLOPT_CONNECT_TO, route);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_USERAGENT, "ZORV Zorvalis/1.0");
    curl_easy_setopt(easy, CURLOPT_PROXY, "");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(easy, CURLOPT_CAINFO, authority.c_str());
    curl_easy_setopt(easy, CURLOPT_SHARE, sessions);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Append);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    if (!body.empty()) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    }
    const CURLcode result = curl_easy_perform(easy);
    curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    curl_slist_free_all(route);
    if (result != CURLE_OK || answer.find(R"("status":"OK")") == std::string::npos) {
        Fail(path + ": " + (result == CURLE_OK ? answer : curl_easy_strerror(result)));
    }
    return answer;
}

std::string Hexadecimal(EVP_MD_CTX* md5) {
    unsigned char digest[16];
    EVP_DigestFinal_ex(md5, digest, nullptr);
    std::string text;
    for (const unsigned char byte : digest) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    return text;
}

std::string Base64(const char* bytes, std::size_t size) {
    std::string text((size + 2) / 3 * 4 + 1, '\0');  // EVP_EncodeBlock writes a NUL behind the text
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), reinterpret_cast<const unsigned char*>(bytes),
                    static_cast<int>(size));
    text.pop_back();
    return text;
}

// Calls `piece` with each piece of the file, then rewinds the file.
template <class Piece>
void ForEachPiece(std::FILE* file, Piece piece) {
    static char bytes[kChunk];
    while (const std::size_t size = std::fread(bytes, 1, sizeof bytes, file)) {
        piece(bytes, size);
    }
    std::rewind(file);
}

}  // namespace

int main(int argc, char** argv) {
    const bool resumes = argc == 7 && std::string(argv[6]) == "resume";
    if (argc != 6 && !resumes) {
        Fail("HOST ADDRESS CA FILE NAME [resume]");
    }
    host = argv[1], address = argv[2], authority = argv[3];
    std::FILE* const file = std::fopen(argv[4], "rb");
    if (file == nullptr) {
        Fail(argv[4]);
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    if (resumes) {
        sessions = curl_share_init();
        curl_share_setopt(sessions, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    }
    EVP_MD_CTX* const md5 = EVP_MD_CTX_new();
    std::size_t total = 0;
    EVP_DigestInit_ex(md5, EVP_md5(), nullptr);
    ForEachPiece(file, [&](const char* bytes, std::size_t size) {
        EVP_DigestUpdate(md5, bytes, size);
        total += size;
    });
    const std::string known =
        Call("/api/FS/inituploadfile", R"({"checksum":")" + Hexadecimal(md5) + R"(","filename":")" + argv[5] +
                                           R"(","filesize":)" + std::to_string(total) + "}");
    constexpr char kKey[] = R"("fileuuid":")";
    const std::size_t start = known.find(kKey) + sizeof kKey - 1;
    const std::string uuid = known.substr(start, known.find('"', start) - start);
    ForEachPiece(file, [&](const char* bytes, std::size_t size) {
        EVP_DigestInit_ex(md5, EVP_md5(), nullptr);
        EVP_DigestUpdate(md5, bytes, size);
        Call("/api/FS/uploadfilechunk", R"({"checksum":")" + Hexadecimal(md5) + R"(","filechunk":")" +
                                            Base64(bytes, size) + R"(","fileuuid":")" + uuid + R"("})");
    });
    Call("/api/FS/finishupload/" + uuid, "");
    EVP_MD_CTX_free(md5);
    std::fclose(file);
    return 0;
}
