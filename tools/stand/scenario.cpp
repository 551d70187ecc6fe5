#include "tools/stand/scenario.h"

#include <algorithm>

namespace stand {

bool Scenario::hasTls() const
{
    return std::any_of(peers.cbegin(), peers.cend(), [](const rig::PeerScript &peer) {
        return peer.kind == rig::PeerScript::Kind::Https;
    });
}

} // namespace stand
