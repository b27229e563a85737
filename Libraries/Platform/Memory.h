// The memory of the process as the system sees it.
#pragma once

// Gives what was freed back to the system where the heap keeps it for later. After tens of megabytes that
// are not needed again soon; costs milliseconds. Never fails.
void ReturnFreeMemory() noexcept;
