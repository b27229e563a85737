#include <Platform/Files.h>
#include <Tools/TextFiles.h>

#include <cstdio>
#include <cstring>

void WriteTextFile(const std::string& path, const std::string& text, const char* mode) {
    std::FILE* file = OpenFile(path, mode ? mode : "w");
    if (!file) return;
    std::fwrite(text.c_str(), 1, std::strlen(text.c_str()) + 1, file);
    std::fclose(file);
}

std::string ReadTextFile(const std::string& path) {
    std::string bytes;
    return ReadFileBytes(path, bytes) ? std::string(bytes.c_str()) : std::string();
}

void ReadFileBlock(const std::string& path, std::unique_ptr<char[]>& out, size_t& size) {
    out.reset();
    std::string bytes;
    if (!ReadFileBytes(path, bytes)) return;
    out = std::make_unique<char[]>(bytes.size() + 1);
    std::memcpy(out.get(), bytes.c_str(), bytes.size());
    size = bytes.size();
}
