#include "platform/imager/CompressedImage.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/process/worker/Worker.h"
#include "platform/imager/ImageFailure.h"
#include "platform/imager/PartitionRuns.h"
#include "platform/imager/ReadingTime.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace qv::imager {

namespace {

constexpr std::string_view kUnpacking = "unpacking";
constexpr std::size_t kMostPartitions = 128;

tl::expected<Value, Error> confined(int image, const std::vector<int>& files,
                                    const std::function<WorkResult()>& run) {
    std::vector<int> descriptors = files;
    descriptors.push_back(image);
    auto result = performWork({.as = Confinement{kImageReader},
                               .run = [&run](const Value&) { return run(); },
                               .patience = readingTimeOf(image),
                               .descriptors = std::move(descriptors)});
    // An error of the work itself names its step.
    return result || workerFailure(result.error()) == 0
               ? std::move(result)
               : failure(kUnpacking, result.error().localizedDescription());
}

WorkResult sizesIn(int image) {
    std::vector<Value> sizes;
    for (const StoredPartition& each :
         partitionsIn(image).value_or(std::vector<StoredPartition>())) {
        sizes.push_back(Value::integer(static_cast<std::int64_t>(each.size)));
    }
    return Value::array(std::move(sizes));
}

Error decodeInto(int image, const std::vector<int>& files) {
    const auto partitions = partitionsIn(image);
    if (!partitions || partitions->size() != files.size()) {
        return failed(kUnpacking, ESTALE); // somebody has changed it
    }
    Error error;
    for (std::size_t each = 0; !error && each < files.size(); ++each) {
        error = decode(image, (*partitions)[each], files[each]);
    }
    return error;
}

// Makes a file of its final length, as zeros at its end are never written.
Descriptor makeFile(int folder, std::size_t number, std::int64_t size) {
    constexpr mode_t kOwnersAlone = 0600;
    Descriptor file(::openat(folder, fmt::format("{}", number).c_str(),
                             O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kOwnersAlone));
    if (file && ::ftruncate(file.get(), size) != 0) {
        file.reset();
    }
    return file;
}

} // namespace

tl::expected<bool, Error> decodeImage(int image, int folder) {
    const auto sizes = confined(image, {}, [image] { return sizesIn(image); });
    if (!sizes) {
        return tl::unexpected(sizes.error());
    }
    // The reader may have been led to say anything.
    if (!sizes->is(Value::Kind::array) || sizes->asArray().empty() ||
        sizes->asArray().size() > kMostPartitions ||
        !std::ranges::all_of(sizes->asArray(), [](const Value& each) {
            return each.is(Value::Kind::integer) && each.asInteger() >= 0;
        })) {
        return false;
    }
    std::vector<Descriptor> files;
    std::vector<int> numbers;
    for (const Value& size : sizes->asArray()) {
        files.push_back(makeFile(folder, files.size(), size.asInteger()));
        if (!files.back()) {
            return failure(kUnpacking, errno);
        }
        numbers.push_back(files.back().get());
    }
    const auto done =
        confined(image, numbers, [&] { return resultOf(decodeInto(image, numbers)); });
    return done ? tl::expected<bool, Error>(true) : tl::unexpected(done.error());
}

} // namespace qv::imager
