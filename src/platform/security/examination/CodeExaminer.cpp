#include "platform/security/examination/CodeExaminer.h"

#include "platform/security/signature/SignatureTrailer.h"

#include <fcntl.h>
#include <utility>

namespace qv {

CodeExaminer::CodeExaminer(std::string anchorsFolder, uid_t anchorOwner, ExaminationCache cache)
    : anchors_(std::move(anchorsFolder), anchorOwner), cache_(std::move(cache)) {}

CodeExaminer::Examined CodeExaminer::examine(int fd, Deadline deadline) {
    const Anchors anchors = anchors_.current();
    cache_.useAnchors(*anchors);
    const auto file = FileKey::of(fd);
    if (!file) { // the examination reports this as well
        return std::make_shared<const StaticCode>(
            StaticCode::examine(fd, {.anchors = *anchors, .deadline = deadline}));
    }
    if (Code known = cache_.find(*file)) {
        return known;
    }
    return judge(fd, *file, anchors, deadline);
}

CodeExaminer::Examined CodeExaminer::judge(int fd, const FileKey& file, const Anchors& anchors,
                                           Deadline deadline) {
    auto code = std::make_shared<const StaticCode>(
        StaticCode::examine(fd, {.anchors = *anchors, .deadline = deadline}));
    remember(file, code);
    return code;
}

CodeExaminer::Examined DeferringExaminer::judge(int fd, const FileKey& file, const Anchors& anchors,
                                                Deadline /*deadline*/) {
    const auto provided = std::exchange(provided_, std::nullopt);
    if (provided && provided->file == file && provided->anchors == anchors->fingerprint()) {
        remember(file, provided->code);
        return provided->code;
    }
    if (!SignatureTrailer::isPresent(fd, file.size)) { // told by the last few bytes alone
        if (auto without = StaticCode::examineUnsigned(fd)) {
            return std::make_shared<const StaticCode>(std::move(*without));
        }
    }
    Descriptor own(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    if (!own) {
        return std::make_shared<const StaticCode>(StaticCode::unreadable(errno));
    }
    return UnjudgedProgram{.fd = std::move(own), .file = file, .anchors = anchors};
}

void DeferringExaminer::provide(const UnjudgedProgram& program, StaticCode code) {
    provided_ = Judgement{.file = program.file,
                          .anchors = program.anchors->fingerprint(),
                          .code = std::make_shared<const StaticCode>(std::move(code))};
}

} // namespace qv
