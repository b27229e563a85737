// The files behind stores: checked, made smaller, backed up and put back.
#include <Programs/vellum/Commands/CommandContext.h>

#include <Platform/Directories.h>
#include <Platform/Files.h>
#include <Platform/OfTarget.h>
#include <Platform/StoreExtensions.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/Explain.h>
#include <Programs/vellum/Session/ProfileAdmin.h>

#include <algorithm>
#include <filesystem>

namespace {

// A store of somebody else has no file that we could look after.
CComPtr<IStoreCare> CareOf(CProfileSession& session, const CStoreInfo& store) {
    CComPtr<IStoreCare> care;
    void* found = nullptr;
    if (session.OpenStore(store)->QueryInterface(IID_IStoreCare, &found) < 0)
        throw CCommandError(ExitCode::NotOpen, "The store \"" + store.name + "\" does not offer this",
                            "Only stores that \"vellum store create\" makes do.");
    care.Attach(static_cast<IStoreCare*>(found));
    return care;
}

struct CFoundDamage {
    CListing& listing;
    std::string store;
    unsigned count = 0;
};

void TakeDamage(void* context, const char* kind, const char* text) {
    auto& found = *static_cast<CFoundDamage*>(context);
    ++found.count;
    found.listing.AddRow({found.store, std::string(kind), std::string(text)});
}

int CheckStores(CCommandContext& context, const std::string& name) {
    CProfileSession& session = context.Session();
    CListing listing({{"store", "Store"}, {"kind", "Kind"}, {"text", "Damage"}}, "No damage was found.");
    unsigned count = 0;
    for (const CStoreInfo& store : session.Stores()) {
        if (!name.empty() && store.name != session.FindStore(name).name) continue;
        CFoundDamage found{listing, Utf8FromNarrow(store.name)};
        StoreCheckCounts counts{};
        CheckCall(CareOf(session, store)->Check(TakeDamage, &found, &counts),
                  "The store \"" + store.name + "\" cannot be checked", ExitCode::NotOpen);
        context.Console().Note("Checked the store \"" + store.name + "\": " + std::to_string(counts.folders) +
                               " folder(s), " + std::to_string(counts.messages) + " message(s), " +
                               std::to_string(counts.parts) + " attachment(s).");
        count += found.count;
    }
    listing.Print(context.Console(), context.Json());
    if (count == 0) return Code(ExitCode::Done);
    context.Console().Error(
        "Damage was found in " + std::to_string(count) + " place(s)",
        "What can still be read goes into files with \"vellum export\"; a backup comes back "
        "with \"vellum store restore\".");
    return Code(ExitCode::ItemsFailed);
}

// What a command did, for a script; people have read the note.
int Done(CCommandContext& context, const Json& what) {
    if (context.Json()) context.Console().Out() << JsonText(what);
    return Code(ExitCode::Done);
}

int CompactStore(CCommandContext& context, const std::string& name) {
    CProfileSession& session = context.Session();
    const CStoreInfo store = session.FindStore(name);
    ULONGLONG before = 0, after = 0;
    const HRESULT hr = CareOf(session, store)->Compact(&before, &after);
    if (hr == MAPI_E_BUSY)
        throw CCommandError(ExitCode::Busy, "The store \"" + name + "\" is being written by another program",
                            "Try again when that is done.");
    CheckCall(hr, "The store \"" + name + "\" cannot be compacted", ExitCode::NotOpen);
    context.Console().Note("Compacted the store \"" + name + "\": " + std::to_string(before / 1024) +
                           " KB before, " + std::to_string(after / 1024) + " KB now.");
    return Done(context, {{"store", Utf8FromNarrow(store.name)}, {"before", before}, {"after", after}});
}

// A backup takes the place of the file, and whoever has a store open there goes on in one that is gone. So it
// is none of the profiles' files, and none that a database has open.
void RefuseFileInUse(const std::string& file) {
    namespace fs = std::filesystem;
    const fs::path profiles = fs::weakly_canonical(NativePath(DataDirectory()) / "profiles");
    const fs::path place = fs::weakly_canonical(fs::absolute(NativePath(file)));
    const auto [end, rest] = std::mismatch(profiles.begin(), profiles.end(), place.begin(), place.end());
    const bool isInside = end == profiles.end();
    if (!isInside && !FileExists(file + "-wal") && !FileExists(file + "-shm")) return;
    throw CCommandError(ExitCode::Usage, "\"" + file + "\" is or may be a store in use",
                        "Give a backup a place of its own, outside of the profiles.");
}

int BackUpStore(CCommandContext& context, const std::string& name, const std::string& file, bool replace) {
    CProfileSession& session = context.Session();
    const CStoreInfo store = session.FindStore(name);
    RefuseFileInUse(file);
    if (FileExists(file) && !replace)
        throw CCommandError(ExitCode::Guarded, "There is a file \"" + file + "\" already",
                            "Give another name, or say --replace.");
    CheckCall(CareOf(session, store)->BackUp(file.c_str()),
              "The store \"" + name + "\" cannot be written to \"" + file + "\"", ExitCode::NotOpen);
    const auto bytes = StampOfFile(file).cbSize;
    context.Console().Note("Backed up the store \"" + name + "\" to \"" + file + "\", " +
                           std::to_string(bytes / 1024) + " KB.");
    return Done(context,
                {{"store", Utf8FromNarrow(store.name)}, {"file", Utf8FromNarrow(file)}, {"bytes", bytes}});
}

int RestoreStore(CCommandContext& context, const std::string& name, const std::string& file, bool force) {
    CProfileAdmin admin;
    const std::string profile = admin.Resolve(context.Options().profile);
    const std::string kept = admin.RestoreStore(profile, name, file, force);
    context.Console().Note("Restored the store \"" + name + "\" from \"" + file + "\"." +
                           (kept.empty() ? "" : " What it held before is kept in \"" + kept + "\"."));
    return Done(
        context,
        {{"store", Utf8FromNarrow(name)}, {"file", Utf8FromNarrow(file)}, {"kept", Utf8FromNarrow(kept)}});
}

struct Arguments {
    std::string name;
    std::string file;
    bool isAgreed = false;  // --replace, --force
};

}  // namespace

void AddStoreCareCommands(CCommandTable& table, CLI::App& group) {
    auto arguments = std::make_shared<Arguments>();
    table
        .AddCommand(group, "check", "Look for damage in a store, or in all; code 1 where there is any",
                    "store check Home",
                    [arguments](CCommandContext& context) { return CheckStores(context, arguments->name); })
        .add_option("NAME", arguments->name, "Its name; without it all stores of the profile");
    table
        .AddCommand(group, "compact", "Give the room of deleted items back to the disk", "store compact Home",
                    [arguments](CCommandContext& context) { return CompactStore(context, arguments->name); })
        .add_option("NAME", arguments->name, "Its name")
        ->required();
    CLI::App& backup = table.AddCommand(
        group, "backup", "Write a store to a file, also while others work with it",
        "store backup Home home.vst", [arguments](CCommandContext& context) {
            return BackUpStore(context, arguments->name, arguments->file, arguments->isAgreed);
        });
    backup.add_option("NAME", arguments->name, "Its name")->required();
    backup.add_option("FILE", arguments->file, "The file; there whole or not at all")->required();
    backup.add_flag("--replace", arguments->isAgreed, "Also if there is a file of the name");
    CLI::App& restore = table.AddCommand(
        group, "restore", "Put a backup in the place of a store, which is kept beside it",
        "store restore Home home.vst", [arguments](CCommandContext& context) {
            return RestoreStore(context, arguments->name, arguments->file, arguments->isAgreed);
        });
    restore.add_option("NAME", arguments->name, "Its name")->required();
    restore.add_option("FILE", arguments->file, "What \"store backup\" wrote")->required();
    restore.add_flag("--force", arguments->isAgreed, "Also if the file is damaged or of another store");
}
