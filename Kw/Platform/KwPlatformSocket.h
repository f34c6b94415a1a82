// KwPlatformSocket: where the systems' sockets differ.
#pragma once

namespace KwPlatform {

// Whether a listening socket must ask to share its address, so that a server can be started again while connections
// of the one before are dying. Where it need not, asking would let others take the port over.
bool RebindNeedsReuse();

}  // namespace KwPlatform
