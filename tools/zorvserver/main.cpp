// zorvserver: the reference server, for development, demonstrations and acceptance on one machine. Here are its
// options, its two listeners, and its end by a signal.

#include <CLI/CLI.hpp>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "certificates.h"
#include "common/deployment.h"
#include "common/version.h"
#include "front.h"

namespace {

constexpr char kAddress[] = "127.0.0.1";

constexpr char kAbout[] =
    "The reference server of the Zorvalis service: hands out setting files and takes record files, over HTTPS and\n"
    "HTTP. It is for development, demonstrations and acceptance on one machine: it knows no clients apart, and it\n"
    "listens on 127.0.0.1 only.";

constexpr char kDetails[] =
    "DATA: records.db holds the uploads, files/ the received files, parts/ those on their way.\n"
    "SETTINGS: <version>/<model name>.json, else <version>/default.json, else the client is told NO_SETTING.\n"
    "\n"
    "SCRIPT: a JSON object a line, read again for each request. Only the first line counts; when the \"nth\" request\n"
    "(absent: 1) of its \"call\" (absent: any) comes, the line is done and taken out of the file. Example:\n"
    "  {\"call\": \"uploadfilechunk\", \"nth\": 3, \"do\": \"status\", \"code\": 500}\n"
    "Calls: query, inituploadfile, uploadfilechunk, finishupload. What it may do:\n";

struct Options {
    std::string data, settings, certificate, key, script;
    int port = 0, httpPort = 0;
    bool quiet = false;
    std::string caFolder;
    std::vector<std::string> hosts{zorvalis::deployment::DefaultServer};
    bool expired = false, wrongName = false;
};

void Define(CLI::App& app, Options& options) {
    app.set_version_flag("--version", std::string("zorvserver ") + zorvalis::kServiceVersion);
    app.footer(kDetails + std::string(zorvalis::kMisdeedHelp));
    const CLI::Range ports(0, 65535);
    CLI::Option* const data =
        app.add_option("--data", options.data, "folder of what the server holds")->type_name("DIR");
    app.add_option("--cert", options.certificate, "certificate chain for HTTPS (PEM)")->type_name("FILE");
    app.add_option("--key", options.key, "its key (PEM)")->type_name("FILE");
    app.add_option("--port", options.port, "HTTPS port; 0, the default, picks a free one")
        ->check(ports)
        ->type_name("N");
    app.add_option("--http-port", options.httpPort, "HTTP port; likewise")->check(ports)->type_name("N");
    app.add_option("--settings", options.settings, "folder of setting documents")->type_name("DIR");
    app.add_option("--script", options.script, "script of misbehaviour, see below")->type_name("FILE");
    app.add_flag("--quiet", options.quiet, "no line for each request");
    CLI::Option* const make =
        app.add_option("--make-ca", options.caFolder,
                       "instead of serving: make ca.pem, unless it is there, and from it server.pem and server.key")
            ->type_name("DIR")
            ->excludes(data);
    app.add_option("--host", options.hosts,
                   std::string("the host names of the certificate (") + zorvalis::deployment::DefaultServer + ")")
        ->type_name("NAME")
        ->needs(make);
    CLI::Option* const expired =
        app.add_flag("--expired", options.expired, "make expired.pem, out of date")->needs(make);
    app.add_flag("--wrong-name", options.wrongName, "make wrong-name.pem, for another host")
        ->needs(make)
        ->excludes(expired);
}

// A listener on a thread of its own. When it ends by itself, it ends the whole server by a signal.
class Listener {
public:
    Listener(std::unique_ptr<httplib::Server> server, const char* scheme, int port, zorvalis::Front& front)
        : server_(std::move(server)) {
        front.Attach(*server_, scheme);
        port_ = port == 0 ? server_->bind_to_any_port(kAddress) : server_->bind_to_port(kAddress, port) ? port : -1;
        if (port_ < 0) {
            throw std::runtime_error(std::string(scheme) + ": port " + std::to_string(port) + " cannot be had");
        }
        std::printf("listening %s %s:%d\n", scheme, kAddress, port_);
    }
    ~Listener() { Stop(); }

    void Start() {
        thread_ = std::thread([this] {
            server_->listen_after_bind();
            ended_ = true;
            ::kill(::getpid(), SIGTERM);
        });
    }
    // Waits for the requests that are being answered. False when the listener had already ended by itself.
    bool Stop() {
        if (!thread_.joinable()) {
            return true;
        }
        while (!server_->is_running() && !ended_) {
            std::this_thread::yield();  // the library loses a stop that comes before the listener runs
        }
        const bool running = !ended_;
        server_->stop();
        thread_.join();
        return running;
    }

private:
    std::unique_ptr<httplib::Server> server_;
    int port_ = -1;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

int Serve(const Options& options) {
    // Blocked in all threads, so that sigwait below gets them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    zorvalis::UploadStore store(options.data);
    zorvalis::Calls calls(store, options.settings);
    zorvalis::Script script(options.script);
    script.Check();
    zorvalis::Front front(calls, script, options.quiet);
    auto secure = std::make_unique<httplib::SSLServer>(options.certificate.c_str(), options.key.c_str());
    if (!secure->is_valid()) {
        throw std::runtime_error(options.certificate + " and " + options.key + " are no certificate and its key");
    }
    Listener https(std::move(secure), "https", options.port, front);
    Listener http(std::make_unique<httplib::Server>(), "http", options.httpPort, front);
    std::fflush(stdout);
    https.Start();
    http.Start();
    int received = 0;
    ::sigwait(&signals, &received);
    front.Stop();
    const bool ran = https.Stop() & http.Stop();
    if (!ran) {
        throw std::runtime_error("the network failed");
    }
    return 0;
}

int Run(int argc, char** argv) {
    CLI::App app(kAbout, "zorvserver");
    Options options;
    Define(app, options);
    try {
        app.parse(argc, argv);
        if (!options.caFolder.empty()) {
            using Kind = zorvalis::CertificateKind;
            zorvalis::MakeCertificates(options.caFolder, options.hosts,
                                       options.expired     ? Kind::expired
                                       : options.wrongName ? Kind::wrongName
                                                           : Kind::valid);
            return 0;
        }
        for (const auto& [name, value] : {std::pair("--data", &options.data), std::pair("--cert", &options.certificate),
                                          std::pair("--key", &options.key)}) {
            if (value->empty()) {
                throw CLI::RequiredError(name);
            }
        }
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error);
        }
        std::fprintf(stderr, "zorvserver: %s\nTry: zorvserver --help\n", error.what());
        return 2;
    }
    return Serve(options);
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zorvserver: %s\n", error.what());
        return 1;
    }
}
