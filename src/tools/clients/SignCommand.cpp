#include "platform/foundation/configuration/Configuration.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CodeSigner.h"
#include "tools/clients/ClientCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <array>
#include <utility>

namespace qv::tools {

namespace {

constexpr std::array<std::pair<std::string_view, std::uint32_t>, 6> kFlagNames = {{
    {"hard", code_flags::kHard},
    {"kill", code_flags::kKill},
    {"runtime", code_flags::kRuntime},
    {"restrict", code_flags::kRestrict},
    {"library-validation", code_flags::kRequireLibraryValidation},
    {"expires", code_flags::kCheckExpiration},
}};

tl::expected<std::uint32_t, Failure> flagBits(const std::vector<std::string>& names) {
    std::uint32_t bits = 0;
    for (const std::string& name : names) {
        std::uint32_t bit = 0;
        for (const auto& [known, value] : kFlagNames) {
            bit = known == name ? value : bit;
        }
        if (bit == 0) {
            return failure(ExitStatus::usage,
                           fmt::format("unknown flag \"{}\"; known: hard, kill, runtime, restrict, "
                                       "library-validation, expires",
                                       name));
        }
        bits |= bit;
    }
    return bits;
}

// The dictionary in a file; empty when no file is named.
tl::expected<Value, Failure> dictionaryOf(const std::string& file) {
    if (file.empty()) {
        return Value::dictionary({});
    }
    auto list = readList(file);
    if (!list) {
        return failure(ExitStatus::usage, std::move(list.error().reason));
    }
    if (!list->document.root.is(Value::Kind::dictionary)) {
        return failure(ExitStatus::usage, fmt::format("{}: a dictionary is wanted here", file));
    }
    return list->document.root;
}

} // namespace

Result sign(const SignOptions& options) {
    const auto flags = flagBits(options.flags);
    if (!flags) {
        return tl::unexpected(flags.error());
    }
    const auto info = dictionaryOf(options.info);
    const auto entitlements = dictionaryOf(options.entitlements);
    if (!info || !entitlements) {
        return tl::unexpected(info ? entitlements.error() : info.error());
    }
    SigningRequest request;
    request.identifier = options.identifier;
    request.team = options.team;
    request.flags = *flags;
    request.platform = options.platform;
    request.info = *info;
    request.entitlements = *entitlements;
    request.certificatePath = options.certificate;
    request.keyPath = options.key;
    request.intermediatePaths = options.intermediates;
    request.allowDebuggableDistribution = configuration::kIsDevelopment;
    if (const auto done = CodeSigner::sign(options.file, request); !done) {
        return signingFailure(done.error());
    }
    Terminal::standardOutput().line(
        options.json
            ? jsonText(Value::dictionary({{"file", Value::string(options.file)},
                                          {"identifier", Value::string(options.identifier)}}))
            : fmt::format("{}: signed as {}", options.file, options.identifier));
    return ExitStatus::success;
}

} // namespace qv::tools
