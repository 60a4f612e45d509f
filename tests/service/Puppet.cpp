#include "service/Puppet.h"

#include "platform/foundation/plist/PropertyList.h"

#include <fmt/format.h>

#include <stdexcept>

namespace qv::test {

namespace {

constexpr std::size_t kLongestLine = 4096; // longer sendings go through a file

std::string hexOf(std::string_view bytes) {
    std::string hex;
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(hex), "{:02x}", static_cast<unsigned char>(byte));
    }
    return hex;
}

std::string bytesOf(std::string_view hex) {
    std::string bytes;
    for (; hex.size() > 1; hex.remove_prefix(2)) {
        bytes += static_cast<char>(std::stoi(std::string(hex.substr(0, 2)), nullptr, 16));
    }
    return bytes;
}

} // namespace

std::filesystem::path Puppet::signedProgram() { return QV_LIVE_PROGRAMS "/wire_puppet"; }
std::filesystem::path Puppet::unsignedProgram() { return QV_WIRE_PUPPET; }

Puppet::Puppet(const std::filesystem::path& program)
    : program_(ProgramStart{.command = {program}}) {}

bool Puppet::connect(const std::string& socketPath) {
    if (const std::string result = order("connect " + socketPath); result != "connected") {
        throw std::runtime_error("no connection: " + result);
    }
    return greet();
}

bool Puppet::greet() {
    const std::optional<xpc::Frame> greeting = frame();
    if (!greeting || greeting->kind != xpc::FrameKind::greeting) {
        return false;
    }
    nonce_ = xpc::dictionaryOfBody(greeting->body).value().find("nonce")->asData();
    return true;
}

bool Puppet::send(std::string_view bytes) {
    return (bytes.size() < kLongestLine
                ? order("send " + hexOf(bytes))
                : order("sendfile " + folder_.write("sending", bytes).string())) == "sent";
}

std::optional<std::string> Puppet::frameBytes() {
    const std::string line = order("frame");
    constexpr std::string_view kLabel = "frame ";
    if (!line.starts_with(kLabel)) {
        return std::nullopt;
    }
    return bytesOf(std::string_view(line).substr(kLabel.size()));
}

std::optional<xpc::Frame> Puppet::frame() {
    const std::optional<std::string> bytes = frameBytes();
    if (!bytes) {
        return std::nullopt;
    }
    const auto header =
        xpc::decodeFrameHeader(std::span(*bytes).first<xpc::kFrameHeaderSize>()).value();
    return xpc::Frame{header.kind, header.replyExpected, header.sequence,
                      bytes->substr(xpc::kFrameHeaderSize)};
}

std::string binary(const Value& script) {
    return PropertyList::dataWithPropertyList(script, PropertyListFormat::binary).value();
}

std::string requestFrame(std::string_view body, std::uint64_t sequence, bool replyExpected) {
    const xpc::FrameHeaderBytes header =
        xpc::encodeFrameHeader({xpc::FrameKind::request, replyExpected, sequence,
                                static_cast<std::uint32_t>(body.size())});
    return std::string(header.data(), header.size()).append(body);
}

std::string Puppet::request(const Value& dictionary, std::uint64_t sequence,
                            bool replyExpected) const {
    std::vector<std::pair<Value, Value>> pairs;
    const DictionaryView given = dictionary.asDictionary();
    for (std::size_t i = 0; i < given.size(); ++i) {
        pairs.emplace_back(given.keys()[i], given.value(i));
    }
    pairs.emplace_back(Value::string("nonce"), Value::data(nonce_));
    return requestFrame(xpc::bodyOfDictionary(Value::dictionary(std::move(pairs))).value(),
                        sequence, replyExpected);
}

std::string Puppet::scriptRequest(std::string_view script, std::uint64_t sequence) const {
    return request(Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                                      {"data", Value::data(script)}}),
                   sequence);
}

std::optional<std::string> Puppet::replyData() {
    const std::optional<xpc::Frame> reply = frame();
    if (!reply || reply->kind != xpc::FrameKind::reply) {
        return std::nullopt;
    }
    const Value dictionary = xpc::dictionaryOfBody(reply->body).value();
    return std::string(dictionary.find("replyData")->asData());
}

std::optional<ScriptOutcome> Puppet::outcome() {
    const std::optional<std::string> archive = replyData();
    if (!archive) {
        return std::nullopt;
    }
    return decodeReply(*archive).value();
}

std::optional<ScriptOutcome> Puppet::executeData(std::string_view script) {
    if (!send(scriptRequest(script))) {
        return std::nullopt;
    }
    return outcome();
}

std::optional<ScriptOutcome> Puppet::execute(const Value& steps) {
    return executeData(binary(steps));
}

void Puppet::finish() {
    program_.endInput();
    if (process().wait() != 0) {
        throw std::runtime_error("the puppet did not end well");
    }
}

void Puppet::kill() {
    process().kill();
    static_cast<void>(process().wait());
}

} // namespace qv::test
