// The allocator state's creation by the library's initialisation. Internal.
#pragma once

// Makes the allocator state with its default pools and posts it as a module, if there is none.
// False when memory is out.
bool KwMemoryState_Create();
