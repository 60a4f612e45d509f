#pragma once

#include <memory>
#include <type_traits>
#include <utility>

namespace qv {

template <typename Signature> class FunctionView;

/// Looks at a callable for the length of a call, without owning or allocating; may be none.
template <typename Result, typename... Arguments> class FunctionView<Result(Arguments...)> {
public:
    FunctionView(std::nullptr_t) noexcept {} // NOLINT(google-explicit-constructor): "no block"

    template <typename Callable>
        requires(!std::is_same_v<std::remove_cvref_t<Callable>, FunctionView> &&
                 std::is_invocable_r_v<Result, Callable&, Arguments...>)
    // NOLINTNEXTLINE(google-explicit-constructor): a block is passed as it is
    FunctionView(Callable&& callable) noexcept
        : object_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
          call_([](void* object, Arguments... arguments) -> Result {
              return (*static_cast<std::remove_reference_t<Callable>*>(object))(
                  std::forward<Arguments>(arguments)...);
          }) {}

    explicit operator bool() const noexcept { return call_ != nullptr; }
    Result operator()(Arguments... arguments) const {
        return call_(object_, std::forward<Arguments>(arguments)...);
    }

private:
    void* object_ = nullptr;
    Result (*call_)(void*, Arguments...) = nullptr;
};

} // namespace qv
