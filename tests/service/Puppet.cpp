#include "service/Puppet.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/xpc/RawClient.h"
#include "support/BuildFolder.h"

#include <stdexcept>

namespace qv::test {

std::filesystem::path Puppet::signedProgram() { return built("live/wire_puppet"); }
std::filesystem::path Puppet::unsignedProgram() { return built("bin/wire_puppet"); }

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
    return order("send " + folder_.write("sent", bytes).native()) == "sent";
}

std::optional<xpc::Frame> Puppet::frame() {
    const std::filesystem::path file = folder_ / "received";
    if (order("frame " + file.native()) != "frame") {
        return std::nullopt;
    }
    const std::string bytes = contentOf(file);
    const auto header =
        xpc::decodeFrameHeader(std::span(bytes).first<xpc::kFrameHeaderSize>()).value();
    return xpc::Frame{header.kind, header.replyExpected, header.sequence,
                      bytes.substr(xpc::kFrameHeaderSize)};
}

std::string Puppet::request(const Value& dictionary, std::uint64_t sequence,
                            bool replyExpected) const {
    std::vector<std::pair<Value, Value>> pairs = {{Value::string("nonce"), Value::data(nonce_)}};
    const DictionaryView given = dictionary.asDictionary();
    for (std::size_t i = 0; i < given.size(); ++i) {
        pairs.emplace_back(given.keys()[i], given.value(i));
    }
    return xpc::test::frameBytes(xpc::FrameKind::request,
                                 xpc::bodyOfDictionary(Value::dictionary(std::move(pairs))).value(),
                                 sequence, replyExpected);
}

std::string Puppet::scriptRequest(std::string_view script, std::uint64_t sequence) const {
    return request(Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                                      {"data", Value::data(script)}}),
                   sequence);
}

std::string Puppet::scriptRequest(const Value& script) const {
    return scriptRequest(
        PropertyList::dataWithPropertyList(script, PropertyListFormat::binary).value());
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
    return archive ? std::optional(decodeReply(*archive).value()) : std::nullopt;
}

std::optional<ScriptOutcome> Puppet::executeData(std::string_view script) {
    return send(scriptRequest(script)) ? outcome() : std::nullopt;
}

std::optional<ScriptOutcome> Puppet::execute(const Value& steps) {
    return send(scriptRequest(steps)) ? outcome() : std::nullopt;
}

void Puppet::finish() {
    endInput();
    if (process().wait() != 0) {
        throw std::runtime_error("the client did not end in an orderly way");
    }
}

void Puppet::kill() {
    process().kill();
    process().wait();
}

} // namespace qv::test
