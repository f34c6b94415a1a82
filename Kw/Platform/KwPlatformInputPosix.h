// What the question box needs of the input beside KwPlatformInput. Internal to the POSIX half of the seam.
#pragma once

namespace KwPlatform {

// Lets an Enter that comes next pass as the end of the answer just given.
void InputAnswered();

}  // namespace KwPlatform
