// Looks an answer up in the file, and with "source": "host" asks the host instead.
#include "hardware_file.h"

#include "host.h"
#include "json_text.h"

namespace zorvalis {
namespace {

// Whether the member is true.
bool Holds(std::string_view object, std::string_view name) {
    return FindMember(object, name) == "true";
}

}  // namespace

Answer HardwareFile::Ask(std::string_view name, std::uint8_t flag) {
    std::array<Member, 3> document = {{{name, {}}, {"source", {}}, {"hostRoot", {}}}};
    FindMembers(file_.text(), document);
    std::string_view value = document[0].value;
    if (value.empty()) {
        return {};
    }
    if (value[0] == '{' && flag == 0) {
        const std::string_view other = FindMember(value, "flag0");
        value = other.empty() ? value : other;
    }
    std::string_view source;
    Answer answer;
    answer.kind = Answer::Kind::given;
    answer.value = value;
    if (value[0] == '{') {
        answer.value = FindMember(value, "value");
        answer.result = FindMember(value, "result");
        source = FindMember(value, "source");
        if (Holds(value, "missing") || Holds(value, "fail")) {
            answer.kind = Holds(value, "missing") ? Answer::Kind::missing : Answer::Kind::failed;
            answer.value = {};
            return answer;
        }
    }
    if (answer.value.starts_with('{') || answer.value.starts_with('[') || answer.value == "null") {
        answer.value = {};
    }
    if (source.empty()) {
        source = document[1].value;
    }
    if (source == "\"host\"") {
        std::array<char, 256> root{};
        CopyText(document[2].value, root.data(), static_cast<int>(root.size()));
        host_.Clear();
        if (AskHost(root.data(), name, host_)) {
            answer.value = host_.view();
            answer.bare = true;
        }
    }
    return answer;
}

HardwareFile::Stored HardwareFile::Store(std::string_view member, std::string_view json) {
    const std::string_view document = file_.text();
    std::string_view old = FindMember(document, member);
    if (old.starts_with('{')) {
        old = FindMember(old, "value");
    }
    if (old.empty()) {
        return Stored::absent;
    }
    const std::string_view before(document.data(), static_cast<std::size_t>(old.data() - document.data()));
    const char* const rest = old.data() + old.size();
    const std::string_view after(rest, static_cast<std::size_t>(document.data() + document.size() - rest));
    return file_.Replace({before, json, after}) ? Stored::done : Stored::failed;
}

}  // namespace zorvalis
