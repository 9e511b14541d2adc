#include "support/reference_server.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "common/deployment.h"
#include "platform/machine.h"

#ifdef _WIN32
#include <windows.h>

#include <wincrypt.h>
#else
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>
#endif

namespace fs = std::filesystem;

int ReferenceServer::count(const std::string& call) const {
    int result = 0;
    std::istringstream log(read_text(folder_ + "server.log"));
    for (std::string line; std::getline(log, line);) {
        result += !line.starts_with("listening") && line.find(call) != std::string::npos;
    }
    return result;
}

#ifdef _WIN32

ReferenceServer::ReferenceServer(const TestMachine&)
    : proxy_([this](const LoopbackRequest& request) {
          int port = 0;
          std::sscanf(read_text(folder_ + "server.log").c_str(), "listening https 127.0.0.1:%d", &port);
          const bool known = request.path == std::string(zorvalis::deployment::DefaultServer) + ":443";
          return LoopbackAnswer{403, "", false, nullptr, known ? port : 0};
      }) {
    const char* const folder = std::getenv("ZORV_TEST_SERVER");
    if (folder == nullptr) {
        throw std::runtime_error("ZORV_TEST_SERVER names no server: ./dev test windows starts one");
    }
    folder_ = std::string(folder) + "/";
    ::SetEnvironmentVariableA("http_proxy", LoopbackServer::address().c_str());
}

ReferenceServer::~ReferenceServer() {
    ::SetEnvironmentVariableA("http_proxy", nullptr);
}

void ReferenceServer::trust() {
    const std::string authority = read_text(folder_ + "ca.der");
    const HCERTSTORE store = ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
    EXPECT_TRUE(::CertAddEncodedCertificateToStore(store, X509_ASN_ENCODING,
                                                   reinterpret_cast<const BYTE*>(authority.data()),
                                                   DWORD(authority.size()), CERT_STORE_ADD_REPLACE_EXISTING, nullptr));
    ::CertCloseStore(store, 0);
}

#else

ReferenceServer::ReferenceServer(const TestMachine& machine) : folder_(machine.bin_folder() + "server/") {
    EXPECT_EQ(std::system((tool + " --make-ca " + folder_).c_str()), 0);
    begin();
}

ReferenceServer::~ReferenceServer() {
    EXPECT_EQ(end(), 0);
}

void ReferenceServer::begin(const std::string& certificate) {
    const std::string log = folder_ + "server.log", data = folder_ + "data", settings = folder_ + "settings",
                      shown = folder_ + certificate;
    const std::size_t before = read_text(log).size();
    process_ = ::fork();
    if (process_ == 0) {
        ::dup2(::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666), STDOUT_FILENO);
        ::execl(tool.c_str(), "zorvserver", "--data", data.c_str(), "--settings", settings.c_str(), "--cert",
                (shown + ".pem").c_str(), "--key", (shown + ".key").c_str(), nullptr);
        ::_exit(127);
    }
    char next = 0;  // of the line behind it
    const auto listens = [&] {
        return std::sscanf(read_text(log).c_str() + before, "listening https 127.0.0.1:%d %c", &port_, &next) == 2;
    };
    while (!listens()) {
        ASSERT_EQ(::waitpid(process_, nullptr, WNOHANG), 0) << "the server ended at once";
        std::this_thread::yield();
    }
    tell_machine();
}

int ReferenceServer::end() {
    int status = -1;
    ::kill(process_, SIGTERM);
    ::waitpid(process_, &status, 0);
    return status;
}

void ReferenceServer::trust() {
    trusted_ = true;
    tell_machine();
}

// Any name leads to it, and only its own is in its certificate.
void ReferenceServer::tell_machine() const {
    const std::string address = ":443\": \"127.0.0.1:" + std::to_string(port_) + "\"";
    write_text(platform::machine_folder() + "/network.json",
               std::string(R"({"hosts": {")") + zorvalis::deployment::DefaultServer + address + ", \"other.example" +
                   address + "}" + (trusted_ ? ", \"ca\": \"" + folder_ + "ca.pem\"" : "") + "}");
}

#endif
