// What the question box needs of the input beside KwPlatformInput. Internal to the POSIX half of the seam.
#pragma once

namespace KwPlatform {

// While a question is asked, line readers leave the keys to it.
void InputSetAsking(bool asking);

}  // namespace KwPlatform
