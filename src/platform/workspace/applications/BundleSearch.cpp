#include "platform/workspace/applications/BundleSearch.h"

#include "platform/foundation/files/item/ResourceValues.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/Folder.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/applications/FoldedText.h"

namespace qv {

namespace {

class BundleSearch final : public TreeVisitor {
public:
    explicit BundleSearch(std::string_view identifier) : identifier_(folded(identifier)) {}

    void visit(const TreeEntry& /*entry*/) override {}
    bool enter(const TreeEntry& folder, int folderFd) override {
        if (!ResourceValues::isPackage(folderFd, folder.name)) {
            return true;
        }
        const auto found = Bundle::bundleInFolder(folderFd, folder.path()).bundleIdentifier();
        if (found && folded(*found) == identifier_) {
            found_ = folder.path();
        }
        return false;
    }
    [[nodiscard]] bool hasStopped() const override { return found_.has_value(); }
    void failed(const std::string& /*path*/, const Error& /*error*/) override {}

    [[nodiscard]] std::optional<std::string> take() { return std::move(found_); }

private:
    std::string identifier_;
    std::optional<std::string> found_;
};

} // namespace

std::optional<std::string> findBundle(std::string_view identifier, const NamedItem& folder) {
    const tl::expected<Descriptor, Error> held = folder.hold();
    Descriptor readable = held ? openFolderIn(held->get(), ".") : Descriptor();
    if (!readable) {
        return std::nullopt;
    }
    BundleSearch search(identifier);
    walkTree(std::move(readable), *folder.path(), search);
    return search.take();
}

} // namespace qv
