// Small whole files. None of these reports an error; absence shows in what they give.
#pragma once
#include <memory>
#include <string>

// Writes the text and its terminating zero. `mode` as for fopen, null means "w". A file that does not
// open is ignored.
void WriteTextFile(const std::string& path, const std::string& text, const char* mode = nullptr);
// The text up to the first zero byte; empty where the file does not open.
std::string ReadTextFile(const std::string& path);
// The whole file and one zero byte behind it; null where it does not open. `size` is without that byte and is
// set only on success.
void ReadFileBlock(const std::string& path, std::unique_ptr<char[]>& out, size_t& size);
