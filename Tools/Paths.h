// Paths as text; the separator is the backslash.
#pragma once
#include <string>

// `file` in the directory of the module; the file alone where the module's path has no directory.
std::string ModuleRelativePath(const std::string& file);
// The text before the last "\"; the path itself where there is none.
std::string ParentPath(const std::string& path);
// The text before the first "\" and, in `rest`, what follows it; the path and an empty rest where there
// is none.
std::string SplitPathHead(const std::string& path, std::string& rest);
// Creates every level of `path` that does not exist ("\", on other systems also "/", separates). 0 on
// success, -1 when the last level is not there afterwards. Levels that exist are entered on the way: the
// working directory of the process stays changed, so give an absolute path and keep none that is relative.
int CreatePath(const std::string& path);
