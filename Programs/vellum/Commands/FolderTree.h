// A walk over a folder and all folders below it.
#pragma once
#include <Programs/vellum/Session/ProfileSession.h>

#include <functional>

// Calls `visit` for `top` (depth 0, with a row of its own) and for each folder below, parents first,
// children by name. A folder that does not open is passed over with `row` alone (folder empty).
void WalkFolders(CProfileSession& session, const CFolderRef& top,
                 const std::function<void(const CFolderRef&, const CFolderEntry&, int depth)>& visit);

// The row that the parent's table would give for this folder.
CFolderEntry RowOfFolder(const CFolderRef& folder);
