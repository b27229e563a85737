#include <Programs/vellum/Session/ProfileFiles.h>

#include <Platform/Directories.h>
#include <Platform/Files.h>

#include <cstdio>

namespace {

// What a file system might not take, and letters whose case one might not tell apart, become %XX.
std::string Encoded(const std::string& name) {
    std::string encoded;
    for (const char c : name) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
        char hex[4];
        std::snprintf(hex, sizeof(hex), "%%%02X", static_cast<unsigned char>(c));
        encoded += plain ? std::string(1, c) : hex;
    }
    return encoded;
}

}  // namespace

std::string ProfileProtocolFile(const std::string& profile) {
    const std::string directory = JoinPath(ConfigDirectory(), "protocols");
    MakePrivateDirectories(directory);
    return JoinPath(directory, Encoded(profile) + ".json");
}
