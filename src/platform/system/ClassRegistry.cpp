#include "platform/system/ClassRegistry.h"

#include <set>

// The linker's names for the begin and the end of the section that registrations are put into.
extern "C" {
[[gnu::visibility(
    "hidden")]] extern const qv::ClassDescription* const __start_qv_classes[]; // NOLINT
[[gnu::visibility(
    "hidden")]] extern const qv::ClassDescription* const __stop_qv_classes[]; // NOLINT
}

namespace qv {

namespace {

using Descriptions = std::span<const ClassDescription* const>;

Descriptions registered() { return {&__start_qv_classes[0], &__stop_qv_classes[0]}; }

bool hasSelector(const ClassDescription& description, std::string_view selector, bool ofClass) {
    return std::ranges::any_of(description.selectors, [&](const Selector& each) {
        return each.isOfClass == ofClass && each.name == selector;
    });
}

// Whether a class or one above it answers. `root` becomes the last one of them.
bool answers(std::string_view className, std::string_view selector, bool ofClass,
             std::string_view& root) {
    // The number of classes bounds the walk: a class registered above itself would never end it.
    for (std::size_t level = 0; level < registered().size() && !className.empty(); ++level) {
        root = className;
        std::string_view superclass;
        for (const ClassDescription* description : registered()) {
            if (description->name == className) {
                if (hasSelector(*description, selector, ofClass)) {
                    return true;
                }
                superclass = description->superclass;
            }
        }
        className = superclass;
    }
    return false;
}

} // namespace

bool ClassRegistry::hasClass(std::string_view name) {
    return std::ranges::any_of(registered(), [&](const auto* each) { return each->name == name; });
}

bool ClassRegistry::respondsToSelector(std::string_view className, std::string_view selector) {
    std::string_view root;
    return hasClass(className) &&
           (answers(className, selector, true, root) || answers(root, selector, false, root));
}

bool ClassRegistry::instancesRespondToSelector(std::string_view className,
                                               std::string_view selector) {
    std::string_view root;
    return hasClass(className) && answers(className, selector, false, root);
}

std::vector<std::string_view> ClassRegistry::classNames() {
    std::set<std::string_view> names;
    for (const ClassDescription* description : registered()) {
        names.insert(description->name);
    }
    return {names.begin(), names.end()};
}

namespace {

// The selectors that every object answers, of any class.
constexpr auto kOfAllObjects = std::to_array<Selector>({
    {"alloc", true},
    {"new", true},
    {"instancesRespondToSelector:", true},
    {"init"},
    {"dealloc"},
    {"retain"},
    {"release"},
    {"autorelease"},
    {"copy"},
    {"mutableCopy"},
    {"self"},
    {"class"},
    {"superclass"},
    {"isEqual:"},
    {"hash"},
    {"description"},
    {"isKindOfClass:"},
    {"isMemberOfClass:"},
    {"conformsToProtocol:"},
    {"respondsToSelector:"},
    {"performSelector:"},
});
constexpr ClassDescription kRoot{"NSObject", {}, kOfAllObjects};
[[gnu::used,
  gnu::section("qv_classes")]] constinit const ClassDescription* const kRootRegistration = &kRoot;

} // namespace

} // namespace qv
