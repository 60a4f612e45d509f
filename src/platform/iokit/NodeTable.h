#pragma once

#include "platform/foundation/os/Descriptor.h"
#include "platform/iokit/RegistryEntry.h"
#include "platform/iokit/RegistryReplacement.h"
#include "platform/iokit/device/AttributeReader.h"
#include "platform/iokit/device/DeviceWalk.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace qv {

/// The live entries, as the kernel's folder showed them last. Guarded by the registry's mutex.
class NodeTable final : DeviceVisitor {
public:
    /// Keeps its entries until the folder is read for the first time.
    NodeTable(const DevicePlaces& places, AttributeReader& reader);
    NodeTable(const NodeTable&) = delete;
    NodeTable(NodeTable&&) = delete;
    NodeTable& operator=(const NodeTable&) = delete;
    NodeTable& operator=(NodeTable&&) = delete;
    ~NodeTable() override = default;

    /// Walks the tree again, unless the kernel tells that nothing has come or gone since: devices
    /// keep their nodes, those that are gone are terminated.
    void refresh();
    void walkAgain(); ///< the next look walks in any case
    /// The live node of a path after a look at its folder; null if the device is gone.
    [[nodiscard]] std::shared_ptr<RegistryEntry> lookAgain(const std::string& path);
    /// Decides anew what depends on what the device manager has found, which may have changed.
    void classifyAgain(RegistryEntry& node);
    /// Terminates a node and all below it.
    void terminate(const std::shared_ptr<RegistryEntry>& node);

    [[nodiscard]] const std::shared_ptr<RegistryEntry>& root() const { return root_; }
    [[nodiscard]] RegistryEntry& platformExpert() const { return *expert_; }
    [[nodiscard]] std::shared_ptr<RegistryEntry>
    byID(std::uint64_t id) const; ///< null: none is live
    [[nodiscard]] std::shared_ptr<RegistryEntry> byPath(const std::string& path) const;
    /// The children by name in natural order.
    [[nodiscard]] static const std::vector<std::shared_ptr<RegistryEntry>>&
    childrenOf(RegistryEntry& node);
    /// Calls the function for every live service, parents before children, until it returns false.
    void forEachService(
        const std::function<bool(const std::shared_ptr<RegistryEntry>&)>& function) const;
    [[nodiscard]] std::size_t size() const { return byID_.size(); }
    [[nodiscard]] int sysfs() const { return sysfs_.get(); }
    /// The same, for a job that may outlive the table.
    [[nodiscard]] const std::shared_ptr<const Descriptor>& sharedSysfs() const { return shared_; }

private:
    void visit(const DeviceSighting& device) override;
    void classify(RegistryEntry& node, const DeviceSighting& device);
    void followManager();
    void place(const std::shared_ptr<RegistryEntry>& node, RegistryEntry& parent,
               std::string_view path);
    void forgetPath(const RegistryEntry& node);
    static void detach(const RegistryEntry& node);
    [[nodiscard]] std::shared_ptr<RegistryEntry> make(std::uint64_t id, std::string name,
                                                      std::string_view chain, DeviceFamily family,
                                                      RegistryEntry* parent);
    [[nodiscard]] std::optional<std::string> eventNumber() const;

    const DevicePlaces& places_;
    AttributeReader& reader_;
    std::shared_ptr<const Descriptor> shared_;
    const Descriptor& sysfs_;
    std::unordered_map<std::uint64_t, std::shared_ptr<RegistryEntry>> byID_;
    std::unordered_map<std::string, RegistryEntry*> byPath_;
    std::shared_ptr<RegistryEntry> root_;
    std::shared_ptr<RegistryEntry> expert_;
    std::uint64_t walk_ = 0;
    std::optional<std::string> walkedAt_;    // the kernel's event number before the last walk
    std::shared_ptr<RegistryEntry> visited_; // last
    // The state of the folder of the manager's data, when they were read last.
    std::optional<std::pair<std::uint64_t, std::int64_t>> managerState_{{0, 0}};
};

} // namespace qv
