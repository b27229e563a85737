#include <Programs/vellum/Sync/LastProtocol.h>

#include <Platform/Clock.h>
#include <Platform/Files.h>
#include <Platform/Machine.h>
#include <Platform/Utf8.h>
#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Items/ItemReport.h>
#include <Programs/vellum/Session/ProfileFiles.h>
#include <Programs/vellum/Sync/PairRun.h>
#include <Tarn/Dispatch/MassDeleteGuard.h>

namespace {

Json ToJson(const CKeptPair& pair) {
    Json entries = Json::array();
    for (const CSyncProtocolEntry& entry : pair.protocol)
        entries.push_back({{"destination", Utf8FromNarrow(entry.m_destination)},
                           {"origin", Utf8FromNarrow(entry.m_origin)},
                           {"subject", Utf8FromNarrow(entry.m_subject)},
                           {"detail", Utf8FromNarrow(entry.m_detail)},
                           {"state", entry.m_state},
                           {"sync_id", Utf8FromNarrow(entry.m_syncId)},
                           {"done", Utf8FromNarrow(entry.m_done)},
                           {"to_source", entry.m_toSource}});
    return {{"name", Utf8FromNarrow(pair.label)},
            {"source", Utf8FromNarrow(pair.source)},
            {"target", Utf8FromNarrow(pair.target)},
            {"remark", Utf8FromNarrow(pair.remark)},
            {"entries", std::move(entries)}};
}

std::string TextIn(const Json& object, const char* key) {
    return Utf8FromNarrow(object.at(key).get<std::string>());
}

CKeptPair PairFromJson(const Json& json) {
    CKeptPair pair;
    pair.label = TextIn(json, "name");
    pair.source = TextIn(json, "source");
    pair.target = TextIn(json, "target");
    pair.remark = TextIn(json, "remark");
    for (const Json& entry : json.at("entries"))
        pair.protocol.Add({TextIn(entry, "destination"), TextIn(entry, "origin"), TextIn(entry, "subject"),
                           TextIn(entry, "detail"), entry.at("state").get<int>(), TextIn(entry, "sync_id"),
                           // Absent in protocols of former versions.
                           TextIn(entry, entry.contains("done") ? "done" : "detail"),
                           entry.at("to_source").get<bool>()});
    return pair;
}

std::string RemarkOf(const CPairResult& result) {
    if (!result.busy.empty()) return "not run, another run had the pair: " + result.busy;
    if (!result.problem.empty()) return "not run: " + result.problem;
    if (result.guarded) return "stopped: " + MassDeletionText(*result.guarded);
    return result.outcome.cancelled ? "cancelled" : "";
}

}  // namespace

CKeptPair KeptPairOf(const CPairResult& result) {
    return {result.label, result.pair.m_sourcePath, result.pair.m_targetPath, RemarkOf(result),
            result.protocol};
}

bool KeepLastRun(const std::string& profile, const std::vector<CKeptPair>& pairs) {
    Json json = {{"ended", ShortTime(UtcNow())},
                 {"computer", Utf8FromNarrow(ComputerName())},
                 {"pairs", Json::array()}};
    for (const CKeptPair& pair : pairs)
        json["pairs"].push_back(ToJson(pair));
    return WriteFileDurably(ProfileProtocolFile(profile), JsonText(json));
}

CKeptRun LastRun(const std::string& profile) {
    const std::string path = ProfileProtocolFile(profile);
    std::string text;
    if (!FileExists(path))
        throw CCommandError(ExitCode::Usage, "The profile \"" + profile + "\" has not seen a run yet",
                            "Run its pairs:  vellum sync");
    if (!ReadFileBytes(path, text))
        throw CCommandError(ExitCode::NotOpen,
                            "The protocol \"" + path + "\" cannot be read: " + LastFileError());
    try {
        const Json json = Json::parse(text);
        CKeptRun run;
        run.ended = TextIn(json, "ended");
        run.computer = TextIn(json, "computer");
        for (const Json& pair : json.at("pairs"))
            run.pairs.push_back(PairFromJson(pair));
        return run;
    } catch (const Json::exception&) {
        throw CCommandError(ExitCode::NotOpen, "The protocol \"" + path + "\" is damaged",
                            "The next run writes it anew.");
    }
}

bool HasLastRun(const std::string& profile) {
    return FileExists(ProfileProtocolFile(profile));
}

void ForgetLastRun(const std::string& profile) {
    RemoveFile(ProfileProtocolFile(profile));
}
