// Memory that hangs on a block of MAPI. For the rooms of this library only.
#pragma once
#include <Platform/MapiHeaders.h>

// False for null and for the two reserved pointer values -1 and -2, which mean "a block of its own".
bool IsRealParent(void* parent);
// MAPIAllocateMore on a real parent, otherwise MAPIAllocateBuffer. S_OK, or the code with a null block.
HRESULT AllocateBehind(size_t cb, void* parent, void** block);
// The same with a copy of cb bytes in it.
HRESULT CopyBehind(const void* source, size_t cb, void* parent, void** block);
