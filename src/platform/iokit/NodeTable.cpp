#include "platform/iokit/NodeTable.h"

#include "platform/foundation/os/Folder.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/iokit/device/KeyValueText.h"
#include "platform/iokit/device/ManagerData.h"

#include <algorithm>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::uint64_t kMadeID = 1; // where the folder of an entry's ID is missing, and the next

// The facts that the class of a device depends on. A new device is read while its folder is open.
class NodeFacts final : public DeviceFacts {
public:
    NodeFacts(RegistryEntry& node, int sysfs, const DevicePlaces& places, AttributeReader& reader,
              const DeviceSighting* sighting)
        : node_(node), sysfs_(sysfs), places_(places), reader_(reader), sighting_(sighting) {
        name = node.kernelName;
        subsystem = node.subsystem;
        devtype = node.devtype;
    }

    [[nodiscard]] bool hasItem(std::string_view item) override {
        return sighting_ == nullptr
                   ? folder() != nullptr && folder()->has(std::string(item).c_str())
                   : std::ranges::any_of(sighting_->items, [&](const FolderItem& found) {
                         return found.name == item;
                     });
    }
    [[nodiscard]] std::optional<std::string> attribute(std::string_view attribute) override {
        return hasItem(attribute) && folder() != nullptr
                   ? reader_.read(folder(), std::string(attribute))
                   : std::nullopt;
    }
    [[nodiscard]] std::optional<std::string> managerProperty(std::string_view key) override {
        if (!managerData_) {
            managerData_ =
                managerDataOf(places_.udevData, subsystem, name, [&](std::string_view wanted) {
                    return wanted == "dev" ? std::optional(number()) : attribute(wanted);
                });
        }
        const auto value = valueOf(*managerData_, key);
        return value ? std::optional<std::string>(*value) : std::nullopt;
    }

private:
    const std::shared_ptr<const DeviceFolder>& folder() {
        if (folder_ == nullptr && sighting_ != nullptr) {
            folder_ = DeviceFolder::duplicate(sighting_->folder);
        } else if (folder_ == nullptr) {
            if (auto opened = DeviceFolder::open(sysfs_, node_.path, node_.id)) {
                folder_ = std::make_shared<const DeviceFolder>(std::move(*opened));
            }
        }
        return folder_;
    }
    // A device keeps its number, and the manager's data are looked up by it again and again.
    const std::string& number() {
        if (!node_.number) {
            node_.number = attribute("dev").value_or("");
        }
        return *node_.number;
    }

    RegistryEntry& node_;
    int sysfs_;
    const DevicePlaces& places_;
    AttributeReader& reader_;
    const DeviceSighting* sighting_; // null: a device that is known
    std::shared_ptr<const DeviceFolder> folder_;
    std::optional<KeyValues> managerData_;
};

// Tells one state of a folder from the next, zeros for a folder that is missing; none while it has
// changed so recently that the next change could bear the same time.
std::optional<std::pair<std::uint64_t, std::int64_t>> stateOfFolder(const std::string& path) {
    constexpr std::int64_t kSecond = 1'000'000'000;
    constexpr std::int64_t kSettled = kSecond / 10;
    struct stat info{};
    struct timespec now{};
    if (::stat(path.c_str(), &info) != 0 || ::clock_gettime(CLOCK_REALTIME, &now) != 0) {
        return std::pair(0, 0);
    }
    const std::int64_t changed = (info.st_mtim.tv_sec * kSecond) + info.st_mtim.tv_nsec;
    const std::int64_t age = (now.tv_sec * kSecond) + now.tv_nsec - changed;
    return age < kSettled ? std::nullopt : std::optional(std::pair(info.st_ino, changed));
}

std::uint64_t inodeIn(int sysfs, const char* name, std::uint64_t otherwise) {
    const auto identity = identityOf(Descriptor(::openat(sysfs, name, O_PATH | O_CLOEXEC)).get());
    return identity ? identity->inode : otherwise;
}

std::string_view lastComponent(std::string_view path) { return path.substr(path.rfind('/') + 1); }

} // namespace

bool comesBefore(std::string_view left, std::string_view right) noexcept {
    std::size_t l = 0;
    std::size_t r = 0;
    const auto digitsFrom = [](std::string_view text, std::size_t& at) {
        while (at < text.size() && text[at] == '0') {
            ++at;
        }
        const std::size_t begin = at;
        while (at < text.size() && isDigit(text[at])) {
            ++at;
        }
        return text.substr(begin, at - begin);
    };
    while (l < left.size() && r < right.size()) {
        if (isDigit(left[l]) && isDigit(right[r])) {
            const auto a = digitsFrom(left, l);
            const auto b = digitsFrom(right, r);
            if (a.size() != b.size() || a != b) {
                return a.size() != b.size() ? a.size() < b.size() : a < b;
            }
        } else if (left[l] != right[r]) {
            return left[l] < right[r];
        } else {
            ++l;
            ++r;
        }
    }
    // Compares numbers that are equal by their texts.
    return left.size() - l != right.size() - r ? left.size() - l < right.size() - r : left < right;
}

NodeTable::NodeTable(const DevicePlaces& places, AttributeReader& reader)
    : places_(places), reader_(reader),
      shared_(std::make_shared<const Descriptor>(
          ::open(places.sysfs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))),
      sysfs_(*shared_) {
    root_ = make(inodeIn(sysfs(), ".", kMadeID), "Root", "IORegistryEntry", DeviceFamily::none,
                 nullptr);
    expert_ = make(inodeIn(sysfs(), "devices", kMadeID + 1), "IOPlatformExpertDevice",
                   "IOPlatformExpertDevice:IOService", DeviceFamily::platformExpert, root_.get());
    static_cast<void>(make(inodeIn(sysfs(), "kernel", kMadeID + 2), "IOResources",
                           "IOResources:IOService", DeviceFamily::none, expert_.get()));
}

std::shared_ptr<RegistryEntry> NodeTable::make(std::uint64_t id, std::string name,
                                               std::string_view chain, DeviceFamily family,
                                               RegistryEntry* parent) {
    auto node = std::make_shared<RegistryEntry>();
    node->id = id;
    node->kernelName = std::move(name);
    node->deviceClass = classOfChain(chain, family);
    node->parent = parent;
    if (parent != nullptr) {
        parent->children.push_back(node);
    }
    byID_[id] = node;
    return node;
}

// The kernel counts the events that it sends, and it sends one for each device that comes, goes or
// changes its place. None where the folder is not the kernel's own.
std::optional<std::string> NodeTable::eventNumber() const {
    struct statfs system{};
    if (::fstatfs(sysfs(), &system) != 0 || system.f_type != SYSFS_MAGIC) {
        return std::nullopt;
    }
    const auto kernel = DeviceFolder::open(sysfs(), "/kernel", 0);
    return kernel ? kernel->read("uevent_seqnum") : std::nullopt;
}

void NodeTable::refresh() {
    if (const auto number = eventNumber(); !number || number != walkedAt_) {
        walkAgain();
    } else {
        followManager();
    }
}

// The manager replaces a device's file when it has something new to say, which is later than the
// kernel's event. It does not ask the kernel, so the kernel's number does not tell.
void NodeTable::followManager() {
    const auto state = stateOfFolder(places_.udevData);
    if (state && state == managerState_) {
        return;
    }
    managerState_ = state;
    for (const auto& [id, node] : byID_) {
        classifyAgain(*node);
    }
}

void NodeTable::walkAgain() {
    auto number = eventNumber();
    followManager();
    ++walk_;
    walkDevices(sysfs(), *this);
    std::vector<std::shared_ptr<RegistryEntry>> gone;
    for (const auto& [id, node] : byID_) {
        if (!node->path.empty() && node->seen != walk_) {
            gone.push_back(node);
        }
    }
    for (const auto& node : gone) {
        terminate(node);
    }
    walkedAt_ = std::move(number);
}

std::shared_ptr<RegistryEntry> NodeTable::lookAgain(const std::string& path) {
    // Devices above that nobody has seen yet come first; folders without a device are passed over.
    std::uint64_t above = 0;
    for (std::size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1)) {
        const std::string upper = path.substr(0, end);
        auto node = byPath(upper);
        if (node == nullptr && end != path.find('/', 1) &&
            visitDevice(sysfs(), upper, above, *this)) {
            node = byPath(upper);
        }
        above = node == nullptr ? above : node->id;
    }
    visited_.reset();
    if (!visitDevice(sysfs(), path, above, *this)) {
        return nullptr;
    }
    classifyAgain(*visited_);
    return std::move(visited_);
}

void NodeTable::visit(const DeviceSighting& device) {
    auto node = byID(device.id);
    if (node == nullptr) {
        node = std::make_shared<RegistryEntry>();
        node->id = device.id;
        node->kernelName = lastComponent(device.path);
        classify(*node, device);
        byID_[device.id] = node;
    }
    if (node->path.empty() && node->parent != nullptr) {
        return; // an entry of the registry's own
    }
    const auto above = device.parent == 0 ? nullptr : byID(device.parent);
    RegistryEntry* const parent = above == nullptr ? expert_.get() : above.get();
    if (node->path != device.path || node->parent != parent) {
        place(node, *parent, device.path);
    }
    node->seen = walk_;
    visited_ = std::move(node);
}

void NodeTable::classify(RegistryEntry& node, const DeviceSighting& device) {
    node.subsystem = targetName(device.folder, "subsystem").value_or("");
    if (dependsOnType(node.subsystem)) {
        const auto pairs = parseUevent(
            NodeFacts(node, sysfs(), places_, reader_, &device).attribute("uevent").value_or(""));
        node.devtype = valueOf(pairs, "DEVTYPE").value_or("");
    }
    NodeFacts facts(node, sysfs(), places_, reader_, &device);
    node.deviceClass = classOf(facts);
}

void NodeTable::classifyAgain(RegistryEntry& node) {
    if (node.live && dependsOnManager(node.subsystem)) {
        NodeFacts facts(node, sysfs(), places_, reader_, nullptr);
        node.deviceClass = classOf(facts);
    }
}

void NodeTable::place(const std::shared_ptr<RegistryEntry>& node, RegistryEntry& parent,
                      std::string_view path) {
    if (node->parent != nullptr) {
        forgetPath(*node);
        detach(*node);
    }
    node->path = path;
    node->kernelName = lastComponent(path);
    node->labelOutdated = true;
    node->childComponents.reset();
    if (byPath_.contains(node->path)) {
        walkedAt_.reset(); // a whole walk tells whether the other one has gone or has another path
    }
    byPath_[node->path] = node.get();
    node->parent = &parent;
    node->parent->children.push_back(node);
    node->parent->childrenSorted = false;
    node->parent->childComponents.reset();
}

void NodeTable::forgetPath(const RegistryEntry& node) {
    // The path may belong to another node by now.
    if (const auto found = byPath_.find(node.path);
        found != byPath_.end() && found->second == &node) {
        byPath_.erase(found);
    }
}

void NodeTable::detach(const RegistryEntry& node) {
    std::erase_if(node.parent->children, [&](const std::shared_ptr<RegistryEntry>& child) {
        return child.get() == &node;
    });
    node.parent->childComponents.reset();
}

void NodeTable::terminate(const std::shared_ptr<RegistryEntry>& node) {
    walkedAt_.reset(); // if that was premature, the next walk finds it again
    std::vector<std::shared_ptr<RegistryEntry>> left{node};
    while (!left.empty()) {
        const auto next = std::move(left.back());
        left.pop_back();
        if (!next->live) {
            continue;
        }
        left.insert(left.end(), next->children.begin(), next->children.end());
        next->live = false;
        if (next == node) {
            detach(*next);
        }
        forgetPath(*next);
        next->parent = nullptr;
        next->children.clear();
        if (const auto found = byID_.find(next->id);
            found != byID_.end() && found->second == next) {
            byID_.erase(found);
        }
    }
}

std::shared_ptr<RegistryEntry> NodeTable::byID(std::uint64_t id) const {
    const auto found = byID_.find(id);
    return found == byID_.end() ? nullptr : found->second;
}

std::shared_ptr<RegistryEntry> NodeTable::byPath(const std::string& path) const {
    const auto found = byPath_.find(path);
    return found == byPath_.end() ? nullptr : byID(found->second->id);
}

const std::vector<std::shared_ptr<RegistryEntry>>& NodeTable::childrenOf(RegistryEntry& node) {
    if (!node.childrenSorted) {
        std::ranges::sort(node.children, [](const auto& left, const auto& right) {
            return left->kernelName == right->kernelName
                       ? left->path < right->path
                       : comesBefore(left->kernelName, right->kernelName);
        });
        node.childrenSorted = true;
    }
    return node.children;
}

void NodeTable::forEachService(
    const std::function<bool(const std::shared_ptr<RegistryEntry>&)>& function) const {
    std::vector<std::shared_ptr<RegistryEntry>> left{expert_};
    while (!left.empty()) {
        const auto node = std::move(left.back());
        left.pop_back();
        if (!function(node)) {
            return;
        }
        const auto& children = childrenOf(*node);
        left.insert(left.end(), children.rbegin(), children.rend());
    }
}

} // namespace qv
