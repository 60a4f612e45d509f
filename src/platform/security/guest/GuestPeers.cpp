#include "platform/security/guest/GuestPeers.h"

#include <algorithm>
#include <ranges>

namespace qv {

RegisteredPeer ConnectedPeers::add(const ConnectedPeer& peer) {
    return {peers_, peers_->insert(peers_->end(), peer)};
}

const ConnectedPeer* ConnectedPeers::find(pid_t pid) const noexcept {
    const auto latestFirst = std::views::reverse(*peers_);
    const auto found = std::ranges::find(latestFirst, pid, &ConnectedPeer::pid);
    return found == latestFirst.end() ? nullptr : &*found;
}

RegisteredPeer::~RegisteredPeer() {
    if (peers_) {
        peers_->erase(position_);
    }
}

} // namespace qv
