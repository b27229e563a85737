// The protocol of a run as text: its states and columns in words, what a filter shows, the exported file.
#pragma once
#include <Tarn/Engine/SyncProtocol.h>

#include <array>
#include <string>

inline constexpr size_t kProtocolColumns = 6;

enum class ProtocolFilter { All = 0, Conflicts = 1, Changed = 2, New = 3, Deleted = 4 };

bool IsShown(const CSyncProtocolEntry& entry, ProtocolFilter filter);

// In UserLanguage(). A state without a word is "unknown".
std::string ProtocolStateName(int state);
// The columns: destination, origin, item, state, detail, identity.
std::array<std::string, kProtocolColumns> ProtocolCaptions();
std::array<std::string, kProtocolColumns> ProtocolValues(const CSyncProtocolEntry& entry);
// A line of an exported file: the values between semicolons, and a line feed. A semicolon within a value
// stands as it is.
std::string ProtocolCsvLine(const std::array<std::string, kProtocolColumns>& values);
