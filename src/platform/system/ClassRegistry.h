#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <span>
#include <string_view>
#include <vector>

namespace qv {

/// A selector, "executeRecording:error:errorScriptStep:", and whether the class itself answers it
/// or its instances do.
struct Selector {
    std::string_view name;
    bool isOfClass = false;
};

/// A registration of a class by a source. Several sources may register the same one: a category
/// adds to the class that it extends. A class without a superclass is a root.
struct ClassDescription {
    std::string_view name;
    std::string_view superclass;
    std::span<const Selector> selectors;
};

/// The classes that this program contains, by the names that scripts know. Each registers itself in
/// its source, by QV_REGISTER_CLASS; all of it is constant and costs nothing when the program
/// starts. A class whose source is not linked into the program is absent.
///
/// A class answers the selectors of its superclasses too. Like every object, a class also answers
/// those that instances of its root do. Case counts in names. For several threads at once.
namespace ClassRegistry {

[[nodiscard]] bool hasClass(std::string_view name);
/// Returns false if the class does not exist.
[[nodiscard]] bool respondsToSelector(std::string_view className, std::string_view selector);
[[nodiscard]] bool instancesRespondToSelector(std::string_view className,
                                              std::string_view selector);
/// Sorted.
[[nodiscard]] std::vector<std::string_view> classNames();

} // namespace ClassRegistry

/// The proof that the methods exist which a registration names. A mistake does not compile.
namespace class_registration {

// The functions are not constexpr, so that a compiler that gets there names them in its error.
void selectorDoesNotFitMember();
void nothingHasThisForm();

// A selector of a member has as many arguments as it has colons; the member may take more of them,
// such as services with a default.
consteval Selector checked(Selector selector, std::string_view member, std::size_t arguments) {
    const auto colons = static_cast<std::size_t>(std::ranges::count(selector.name, ':'));
    const bool endsWell = colons == 0 || selector.name.ends_with(':');
    if (selector.name.substr(0, selector.name.find(':')) != member || arguments < colons ||
        !endsWell) {
        selectorDoesNotFitMember();
    }
    return selector;
}

template <typename Class, typename Result, typename... Arguments>
consteval Selector ofInstances(std::string_view selector, std::string_view member,
                               Result (Class::*)(Arguments...)) {
    return checked({selector, false}, member, sizeof...(Arguments));
}
template <typename Class, typename Result, typename... Arguments>
consteval Selector ofInstances(std::string_view selector, std::string_view member,
                               Result (Class::*)(Arguments...) const) {
    return checked({selector, false}, member, sizeof...(Arguments));
}
template <typename Result, typename... Arguments>
consteval Selector ofClass(std::string_view selector, std::string_view member,
                           Result (*)(Arguments...)) {
    return checked({selector, true}, member, sizeof...(Arguments));
}
template <typename Result, typename Receiver, typename... Arguments>
consteval Selector ofReceiver(std::string_view selector, std::string_view member,
                              Result (*)(Receiver, Arguments...)) {
    return checked({selector, false}, member, sizeof...(Arguments));
}
consteval Selector shown(Selector selector, bool exists) {
    if (!exists) {
        nothingHasThisForm();
    }
    return selector;
}

} // namespace class_registration

} // namespace qv

// Register a class, in its own source and in its namespace, with a line for each selector:
//
//     QV_REGISTER_CLASS(QVSample, NSObject,
//                       QV_CLASS_METHOD(sample, "sample"),
//                       QV_METHOD(find, "find:inList:"),
//                       QV_METHOD_AS("initWithName:", std::constructible_from<Self, std::string>));
//
// QV_METHOD names a member function, QV_CLASS_METHOD a static one. Where the C++ form has another
// name or shape (a constructor, an operator, one of several overloads), the _AS forms take an
// expression that holds because it exists. QV_REGISTER_CATEGORY registers the functions of a
// namespace as methods of a class; QV_RECEIVER_METHOD names one whose first parameter is the object
// that it is sent to. QV_REGISTER_PLATFORM_CLASS is for a class that scripts know by another name
// than C++ does. `Self` is the C++ class or the namespace.

// NOLINTBEGIN(bugprone-macro-parentheses): they are given names of types and namespaces
#define QV_METHOD(member, selector)                                                                \
    ::qv::class_registration::ofInstances(selector, #member, &Self::member)
#define QV_CLASS_METHOD(member, selector)                                                          \
    ::qv::class_registration::ofClass(selector, #member, &Self::member)
#define QV_RECEIVER_METHOD(member, selector)                                                       \
    ::qv::class_registration::ofReceiver(selector, #member, &Self::member)
#define QV_METHOD_AS(selector, ...)                                                                \
    ::qv::class_registration::shown({selector, false}, (__VA_ARGS__))
#define QV_CLASS_METHOD_AS(selector, ...)                                                          \
    ::qv::class_registration::shown({selector, true}, (__VA_ARGS__))

#define QV_REGISTER_CLASS(className, superclassName, ...)                                          \
    QV_REGISTER_SELECTORS(className##Class, using Self = className, #className, #superclassName,   \
                          __VA_ARGS__)
#define QV_REGISTER_PLATFORM_CLASS(className, type, ...)                                           \
    QV_REGISTER_SELECTORS(className##Class, using Self = type, #className, "NSObject", __VA_ARGS__)
#define QV_REGISTER_CATEGORY(className, superclassName, category, ...)                             \
    QV_REGISTER_SELECTORS(category##Category, namespace Self = category, #className,               \
                          #superclassName, __VA_ARGS__)
#define QV_REGISTER_SELECTORS(unique, self, className, superclassName, ...)                        \
    namespace {                                                                                    \
    constexpr auto unique##Selectors = [] {                                                        \
        self;                                                                                      \
        return std::to_array<::qv::Selector>({__VA_ARGS__});                                       \
    }();                                                                                           \
    constexpr ::qv::ClassDescription unique##Description{className, superclassName,                \
                                                         unique##Selectors};                       \
    [[gnu::used,                                                                                   \
      gnu::section(                                                                                \
          "qv_classes")]] constinit const ::qv::ClassDescription* const unique##Registration =     \
        &unique##Description;                                                                      \
    }                                                                                              \
    static_assert(true) // takes the semicolon
// NOLINTEND(bugprone-macro-parentheses)
