#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/security/examination/ExaminationCache.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace qv {

/// A program that another process has yet to judge, and the anchors that it is judged under.
struct UnjudgedProgram {
    Descriptor fd;
    FileKey file;
    std::shared_ptr<const AnchorSet> anchors;
};

/// Judges programs on disk under the anchors as they are at the moment, in this process, and
/// remembers the good ones. For one thread.
class CodeExaminer {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// `anchorsFolder` and `anchorOwner` as TrustAnchors takes them.
    CodeExaminer(std::string anchorsFolder, uid_t anchorOwner,
                 ExaminationCache cache = ExaminationCache());
    CodeExaminer(const CodeExaminer&) = delete;
    CodeExaminer& operator=(const CodeExaminer&) = delete;
    CodeExaminer(CodeExaminer&&) = delete;
    CodeExaminer& operator=(CodeExaminer&&) = delete;
    virtual ~CodeExaminer() = default;

    /// The judgement (never null), or the program if another process has yet to judge it.
    using Examined = std::variant<std::shared_ptr<const StaticCode>, UnjudgedProgram>;
    /// The program behind a descriptor that is open for reading.
    [[nodiscard]] Examined examine(int fd, Deadline deadline);

    /// The reason why nobody is trusted at present; empty when somebody is.
    [[nodiscard]] std::string anchorsReason() const { return anchors_.reason(); }

protected:
    using Code = std::shared_ptr<const StaticCode>;
    using Anchors = std::shared_ptr<const AnchorSet>;

    /// A program that is not remembered.
    virtual Examined judge(int fd, const FileKey& file, const Anchors& anchors, Deadline deadline);
    void remember(const FileKey& file, const Code& code) { cache_.add(file, code); }

private:
    TrustAnchors anchors_;
    ExaminationCache cache_;
};

/// Leaves the judgement of everything that is signed to somebody with less privilege: a process of
/// root must not read a file that a stranger has signed.
class DeferringExaminer final : public CodeExaminer {
public:
    using CodeExaminer::CodeExaminer;

    /// The answer for the next examination, if that is of the very same, unchanged file under the
    /// same anchors.
    void provide(const UnjudgedProgram& program, StaticCode code);

protected:
    Examined judge(int fd, const FileKey& file, const Anchors& anchors, Deadline deadline) override;

private:
    struct Judgement {
        FileKey file;
        AnchorSet::Digest anchors;
        Code code;
    };
    std::optional<Judgement> provided_;
};

} // namespace qv
