// The tables of words behind WinHTTP's numbers and behind the status of an answer.
#include "network_words.h"

namespace zorvalis {

namespace {

struct ErrorWords {
    std::uint32_t number;
    const char* words;
};

constexpr ErrorWords kErrors[] = {
    {14, "out of memory"},
    {12001, "Windows has no handles left for a connection"},
    {12002, "no answer in time: the server is slow, or a firewall swallows what is sent"},
    {12004, "the HTTP library failed inside, or is missing"},
    {12005, "the server's name is empty or no host name"},
    {12007, "the server's name is not known: misspelt, or the name service cannot be asked"},
    {12017, "the request was given up"},
    {12019, "nothing was sent, so there is no answer to wait for"},
    {12029, "no connection: nothing listens there, or a firewall refuses it"},
    {12030, "the connection broke off before the answer was complete"},
    {12037, "the server's certificate is not valid today: expired, or this machine's clock is wrong"},
    {12038, "the server's certificate is for another name"},
    {12044, "the server asks for a certificate of this machine, which has none"},
    {12045, "the authority of the server's certificate is not trusted here"},
    {12057, "nobody could say whether the server's certificate was revoked"},
    {12150, "the answer lacks a header that belongs there"},
    {12152, "what answers does not speak HTTP, or broke off in the answer's head"},
    {12156, "the server sends the request elsewhere, and that cannot be followed"},
    {12157, "no secure connection: the two ends agree on no form of TLS, or the certificate was refused"},
    {12169, "the server's certificate is not valid"},
    {12170, "the server's certificate was revoked"},
    {12175,
     "the server's certificate is not trusted: its authority is unknown here, it is for another name, or it is out of "
     "date (check this machine's clock too)"},
    {12179, "the server's certificate is not meant for servers"},
    {12180, "the proxy could not be found by itself: check the machine's proxy setting"},
    {12182, "the answer's head is too long"},
    {12184, "the answer is longer than the service takes"},
};

struct StatusWords {
    long from, to;
    const char* words;
};

// The first row that fits counts.
constexpr StatusWords kStatuses[] = {
    {200, 200, "as it should be"},
    {201, 299, "a success that the service does not take: it wants 200"},
    {300, 399, "the request is to go elsewhere; a proxy's login page does that too"},
    {407, 407, "the proxy wants a login, and the service has none"},
    {404, 405, "nothing there speaks this protocol: is it the right host?"},
    {401, 403, "the server does not let this machine in"},
    {413, 413, "what was sent is too large for the server or for what stands before it"},
    {429, 429, "the server has too many requests"},
    {502, 504, "what stands before the server cannot reach it, or it is overloaded"},
    {500, 599, "the server itself failed; its own log says why"},
    {400, 499, "the server finds the request wrong"},
};

}  // namespace

std::string NetworkErrorWords(std::uint32_t error) {
    for (const ErrorWords& row : kErrors) {
        if (row.number == error) {
            return std::string(row.words) + " (" + std::to_string(error) + ")";
        }
    }
    return "error " + std::to_string(error);
}

std::string HttpStatusWords(long status) {
    const std::string text = "it answers with status " + std::to_string(status);
    for (const StatusWords& row : kStatuses) {
        if (row.from <= status && status <= row.to) {
            return text + ": " + row.words;
        }
    }
    return text;
}

}  // namespace zorvalis
