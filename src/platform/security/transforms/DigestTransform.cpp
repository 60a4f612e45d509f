#include "platform/security/transforms/DigestTransform.h"

#include "platform/foundation/os/Descriptor.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qv {

namespace {

constexpr std::size_t kReadLength = std::size_t{1} << 20;

/// A digest on its way. The library refuses only for want of memory: std::bad_alloc.
class RunningDigest {
public:
    explicit RunningDigest(const EVP_MD* digest) : context_(EVP_MD_CTX_new()) {
        require(context_ && EVP_DigestInit_ex2(context_.get(), digest, nullptr) == 1);
    }
    void update(std::string_view bytes) {
        require(EVP_DigestUpdate(context_.get(), bytes.data(), bytes.size()) == 1);
    }
    Value finish() {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
        unsigned int length = 0;
        require(EVP_DigestFinal_ex(context_.get(), digest.data(), &length) == 1);
        return Value::data(bytesView(digest.data(), length));
    }

private:
    static void require(bool success) {
        if (!success) { // never go on with a digest that was not computed
            throw std::bad_alloc();
        }
    }
    MessageDigestHandle context_;
};

// A device acts when it is opened, if only for a moment.
tl::expected<Descriptor, Error> openRegularFile(const std::string& path) {
    const Descriptor item(::open(path.c_str(), O_PATH | O_CLOEXEC));
    struct stat facts{};
    if (!item || ::fstat(item.get(), &facts) != 0) {
        return tl::unexpected(Error::posix(errno));
    }
    if (!S_ISREG(facts.st_mode)) {
        return tl::unexpected(Error::posix(S_ISDIR(facts.st_mode) ? EISDIR : EINVAL));
    }
    Descriptor file(::open(fmt::format("/proc/self/fd/{}", item.get()).c_str(),
                           O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!file) {
        return tl::unexpected(Error::posix(errno));
    }
    static_cast<void>(::posix_fadvise(file.get(), 0, 0, POSIX_FADV_SEQUENTIAL)); // a mere hint
    return file;
}

} // namespace

DigestTransform::DigestTransform(std::string_view type)
    : type_(type), digest_(CryptoLibrary::shared().digest(type_)) {}

tl::expected<Value, Error> DigestTransform::execute(std::string_view input) const {
    if (!digest_) {
        return tl::unexpected(refusal());
    }
    RunningDigest running(digest_.get());
    running.update(input);
    return running.finish();
}

tl::expected<Value, Error> DigestTransform::executeOnFile(const std::string& path) const {
    if (!digest_) {
        return tl::unexpected(refusal());
    }
    const tl::expected<Descriptor, Error> file = openRegularFile(path);
    if (!file) {
        return tl::unexpected(file.error());
    }
    RunningDigest running(digest_.get());
    std::vector<char> piece(kReadLength);
    while (true) {
        const ssize_t got = ::read(file->get(), piece.data(), piece.size());
        if (got == 0) {
            return running.finish();
        }
        if (got > 0) {
            running.update({piece.data(), static_cast<std::size_t>(got)});
        } else if (errno != EINTR) {
            return tl::unexpected(Error::posix(errno));
        }
    }
}

Error DigestTransform::refusal() const {
    return Error::withDescription(error_domain::kOSStatus,
                                  transform_status::kInvalidDigestAlgorithm,
                                  fmt::format("There is not a digest of the type \"{}\".", type_));
}

} // namespace qv
