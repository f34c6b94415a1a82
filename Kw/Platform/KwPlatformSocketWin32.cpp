#include "Kw/Platform/KwPlatformSocket.h"

bool KwPlatform::RebindNeedsReuse() {
    return false;
}
