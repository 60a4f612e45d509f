#include "platform/xpc/Debts.h"

#include <algorithm>

namespace qv::xpc {

std::chrono::nanoseconds Debts::left(const Debt& debt, Clock::time_point now) const {
    using Seconds = std::chrono::duration<double>;
    const auto paid = share_ * Seconds(now - debt.since).count(); // whole numbers would overflow
    return std::max(debt.amount - std::chrono::duration_cast<std::chrono::nanoseconds>(paid),
                    std::chrono::nanoseconds(0));
}

void Debts::add(uid_t user, std::chrono::nanoseconds cost, Clock::time_point now) {
    Debt& debt = debts_[user];
    debt = {left(debt, now) + cost, now};
    std::erase_if(debts_, [&](const auto& each) { return left(each.second, now).count() == 0; });
}

bool Debts::isOverdrawn(uid_t user, Clock::time_point now) const {
    const auto found = debts_.find(user);
    return found != debts_.end() && left(found->second, now) > share_;
}

} // namespace qv::xpc
