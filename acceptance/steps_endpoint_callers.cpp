// Who may call: another user, a program with a low label, and app containers with and without the capability. Each is a
// copy of the kit; where the service runs it calls that too.
#include <windows.h>

#include "caller.h"
#include "endpoint_server.h"
#include "kit.h"
#include "part.h"
#include "product_service.h"
#include "steps_endpoint.h"
#include "stranger.h"

namespace zorvalis::acceptance {
namespace {

using zorvalis_client::Client;

constexpr wchar_t kCapability[] = L"Zorv.Zorvinfo_k7rt2xw94hmpa";
constexpr DWORD kNotThat = 0x20000001;  // the stranger is not what it was to be
constexpr DWORD kNoStatus = 0x10000;
constexpr int kLowest = 0x2000;  // of the labels of ordinary programs

// The words: "other", "low" or "container", what the first is not to be, and the endpoint; "" is the service's.
int Call(const std::vector<std::string>& words) {
    const Json own = Json::parse(ThisProcess());
    const std::string& kind = words.at(0);
    const bool isThat = kind == "other" ? own.value("sid", "") != words.at(1)
                        : kind == "low" ? own.value("integrity", kLowest) < kLowest
                                        : own.value("container", false);
    if (!isThat) {
        return kNotThat;
    }
    return StatusOf([&] {
        Client client({}, words.at(2));
        client.BigDataServiceCall(words.at(2).empty() ? R"({"function":9,"version":1})" : "note");
    });
}

const Part kCall("rpc-call", Call);

std::string CommandOf(const OpenCopy& copy, const std::string& kind, const std::string& endpoint) {
    return PartCommand(kCall.name, {kind, Json::parse(ThisProcess()).value("sid", ""), endpoint}, copy.Program());
}

// Ends the step where the stranger was not started, or was nobody else.
void NeedStranger(Findings& findings, const StrangersEnd& end) {
    ImpossibleUnderWine(findings, end.where.empty() && end.code == kNotThat,
                        "this Windows starts it as the same user with the same rights");
    ImpossibleUnderWine(findings, !end.where.empty(), end.where + " fails: " + ErrorText(end.code));
    if (end.code == ERROR_SERVICE_DISABLED || end.code == ERROR_ACCESS_DISABLED_BY_POLICY) {
        findings.Impossible(end.where + ": " + ErrorText(end.code));
    }
    if (!end.where.empty() || end.code == kNotThat) {
        findings.Fail((end.where.empty() ? "it is not who it was to be" : end.where) + ": " + ErrorText(end.code));
    }
}

// What the server has noted of the last caller.
Json LastCaller(EchoServer& server) {
    return Json::parse(server.State().at("caller").get<std::string>());
}

// Lets a stranger call the kit's own server, then the service where that runs.
template <class Run>
void TryStranger(Findings& findings, EchoServer& server, const OpenCopy& copy, const std::string& kind, bool isLetIn,
                 Run run) {
    const auto expect = [&](const StrangersEnd& end, const char* whose) {
        NeedStranger(findings, end);
        // A greater number is no call's: the program itself has failed.
        const bool isRefused = end.code != 0 && end.code < kNoStatus;
        findings.Expect(isLetIn ? end.code == 0 : isRefused,
                        std::string("its call to ") + whose + " ends with " + ErrorText(end.code));
    };
    expect(run(CommandOf(copy, kind, server.Endpoint())), "the kit's server");
    if (IsRegistered()) {
        StartProduct(findings);
        Client({}, Patient());
        expect(run(CommandOf(copy, kind, "")), "the service");
    }
}

void OtherUsers(Findings& findings) {
    EchoServer server(findings);
    const OpenCopy copy(findings);
    const OtherUser user;
    ImpossibleUnderWine(findings, !user.Failure().empty(), user.Failure());
    if (!user.Failure().empty()) {
        findings.Fail(user.Failure());
    }
    TryStranger(findings, server, copy, "other", true, [&](const std::string& command) { return user.Run(command); });
    const Json seen = LastCaller(server);
    findings.Expect(seen.value("sid", "") != Json::parse(ThisProcess()).value("sid", "") &&
                        seen.value("level", -1) == SecurityIdentification,
                    "the server sees another user, whom it may identify alone: " + seen.dump());
}

void RemoveUser() {
    OtherUser::Remove();
    OpenCopy::Remove();
}

void LowLabel(Findings& findings) {
    EchoServer server(findings);
    const OpenCopy copy(findings);
    findings.Saw("that Windows lets a low label connect to an endpoint without a label of its own is not documented");
    TryStranger(findings, server, copy, "low", true, RunLow);
    findings.Expect(LastCaller(server).value("integrity", kLowest) < kLowest,
                    "the server sees its label: " + LastCaller(server).dump());
}

void NeedContainers(Findings& findings, const StrangersEnd& end) {
    if (end.where == "no app containers") {
        findings.Impossible("this Windows has no app containers");
    }
}

void Contained(Findings& findings, bool withCapability) {
    EchoServer server(findings);
    const OpenCopy copy(findings);
    TryStranger(findings, server, copy, "container", withCapability, [&](const std::string& command) {
        const StrangersEnd end = RunContained(command, withCapability ? kCapability : nullptr);
        NeedContainers(findings, end);
        return end;
    });
    RemoveContainer();
    if (withCapability) {
        findings.Expect(LastCaller(server).value("container", false),
                        "the server sees that it is in a container: " + LastCaller(server).dump());
    }
}

void RemoveContained() {
    RemoveContainer();
    OpenCopy::Remove();
}

}  // namespace

std::vector<Step> CallerSteps() {
    return {
        {"5.40", "Another user's program is served", OtherUsers, 120, RemoveUser, false},
        {"5.41", "A program with a low label is served", LowLabel, 120, OpenCopy::Remove, false},
        {"5.42", "A program in an app container with the capability is served",
         [](Findings& findings) { Contained(findings, true); }, 120, RemoveContained, false},
        {"5.43", "A program in an app container without the capability is refused",
         [](Findings& findings) { Contained(findings, false); }, 120, RemoveContained, false},
    };
}

}  // namespace zorvalis::acceptance
