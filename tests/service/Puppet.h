#pragma once

#include "client/QVCatalogHelperClient.h"
#include "platform/xpc/wire/Frame.h"
#include "support/LedProgram.h"
#include "support/TemporaryDirectory.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace qv::test {

/// A client of the service that a test leads by the hand: wire_puppet, signed as a good client
/// unless another copy of it is named.
class Puppet : public LedProgram {
public:
    explicit Puppet(const std::filesystem::path& program = signedProgram())
        : LedProgram(ProgramStart{.command = {program}}) {}
    [[nodiscard]] static std::filesystem::path signedProgram();
    [[nodiscard]] static std::filesystem::path unsignedProgram();

    /// Connects and reads the greeting; false when the service closed instead.
    bool connect(const std::string& socketPath);
    /// The second half of that.
    bool greet();
    /// Sends bytes; false when the service has closed.
    bool send(std::string_view bytes);
    /// The next frame; none when the service closed instead.
    std::optional<xpc::Frame> frame();

    /// A request with this connection's nonce added to `dictionary`.
    [[nodiscard]] std::string request(const Value& dictionary, std::uint64_t sequence = 1,
                                      bool replyExpected = true) const;
    /// A request that has this property list carried out.
    [[nodiscard]] std::string scriptRequest(std::string_view script,
                                            std::uint64_t sequence = 1) const;
    [[nodiscard]] std::string scriptRequest(const Value& script) const;
    /// The archive in the next frame.
    std::optional<std::string> replyData();
    std::optional<ScriptOutcome> outcome();
    std::optional<ScriptOutcome> executeData(std::string_view script);
    std::optional<ScriptOutcome> execute(const Value& steps);

    /// Ends in an orderly way, or not; the process is gone for good afterwards.
    void finish();
    void kill();

private:
    TemporaryDirectory folder_;
    std::string nonce_;
};

} // namespace qv::test
