#pragma once

#include "platform/security/install/ClientInstaller.h"

#include <functional>
#include <string>

namespace qv {

/// A client that a machine makes for itself: a copy of a program that only root can execute, signed
/// with a key that nobody has afterwards, and allowed by the hashes of its code directory and its
/// certificate alone. Nothing else can ever be signed with it.
///
/// It consists of three files: the program, NAME.pem among the certificates of `trusted`, and
/// NAME.requirement among the allowed clients. Two processes that work on them take turns.
class OwnClient {
public:
    struct Choices {
        std::string name; ///< of the allowed client
        std::string identifier;
        std::string team;
        /// The file that the copy becomes, absolute, in a folder of its own, which is made with
        /// mode 0700: a process of any user that has the client group could execute the program
        /// otherwise.
        std::string path;
    };
    /// Anchors and allowed clients stand in one folder, which must exist. Both arguments must
    /// outlive the object.
    OwnClient(const Choices& choices, const CodeSigningConfiguration& configuration)
        : choices_(choices), configuration_(configuration) {}

    /// Makes it from the program that is open as `program`, or makes it anew. At every moment the
    /// former client works or the new one, also when this is cut off; a failure leaves the former
    /// one. Needs root. `eachStep`, when there is one, is called after each change.
    ///
    /// Failures are as those of ClientInstaller.
    [[nodiscard]] tl::expected<InstalledClient, Error>
    install(int program, const std::function<void()>& eachStep = {}) const;

    /// Takes all of it away, the program first; nothing of it need be there.
    [[nodiscard]] Error remove() const;

    [[nodiscard]] std::string anchorPath() const;
    [[nodiscard]] std::string requirementPath() const;

private:
    const Choices& choices_;
    const CodeSigningConfiguration& configuration_;
};

} // namespace qv
