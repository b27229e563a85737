// The memory of the process as the system sees it.
#pragma once

// For a program that reads whole folders, at its start, before other threads: makes room in the heap in large
// pages where the system has them. Never fails.
void PrepareHeap() noexcept;

// Gives what was freed back to the system where the heap keeps it for later. After tens of megabytes that
// are not needed again soon; costs milliseconds. Never fails.
void ReturnFreeMemory() noexcept;
