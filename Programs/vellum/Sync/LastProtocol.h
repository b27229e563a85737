// The protocol of a profile's last run, kept for "vellum protocol".
#pragma once
#include <Tarn/Engine/SyncProtocol.h>

#include <string>
#include <vector>

struct CPairResult;

struct CKeptPair {
    std::string label;
    std::string source;  // path
    std::string target;
    std::string remark;  // why it did not run, or was stopped; empty: it ran
    CSyncProtocol protocol;
};

struct CKeptRun {
    std::string ended;  // "2026-11-23 02:50", UTC
    std::string computer;
    std::vector<CKeptPair> pairs;
};

CKeptPair KeptPairOf(const CPairResult& result);
// Replaces the protocol kept before, whole or not at all. False if it could not be written.
bool KeepLastRun(const std::string& profile, const std::vector<CKeptPair>& pairs);
// Throws CCommandError: Usage where no run was kept, NotOpen for a file that cannot be understood.
CKeptRun LastRun(const std::string& profile);
bool HasLastRun(const std::string& profile);
// For a profile that is removed.
void ForgetLastRun(const std::string& profile);
