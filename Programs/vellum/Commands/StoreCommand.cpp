#include <Platform/StoreExtensions.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/FolderTree.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/ProfileAdmin.h>
#include <Programs/vellum/Sync/PairStore.h>
#include <Tarn/Dispatch/PairLock.h>

namespace {

int ListStores(CCommandContext& context) {
    CProfileSession& session = context.Session();
    CListing listing(
        {{"name", "Store"}, {"default", "Default"}, {"folders", "Folders"}, {"items", "Items"}},
        "The profile \"" + session.Name() + "\" has no stores yet. Create one:  vellum store create NAME");
    for (const CStoreInfo& store : session.Stores()) {
        unsigned folders = 0;
        long long items = 0;
        WalkFolders(session, session.OpenFolder(store.name),
                    [&](const CFolderRef&, const CFolderEntry& row, int depth) {
                        folders += depth > 0 ? 1 : 0;
                        items += row.items;
                    });
        listing.AddRow(
            {Utf8FromNarrow(store.name), {store.isDefault, store.isDefault ? "yes" : ""}, folders, items});
    }
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int CreateStore(CCommandContext& context, const std::string& name, const std::vector<std::string>& habits) {
    CProfileAdmin admin;
    const std::string profile = admin.Resolve(context.Options().profile);
    admin.CreateStore(profile, name, habits);
    context.Console().Note("Created the store \"" + name + "\" in the profile \"" + profile + "\".");
    return Code(ExitCode::Done);
}

// Pairs that would lose a folder, or all of them where the store keeps their list.
std::string PairsOnStore(CProfileSession& session, const CStoreInfo& store) {
    std::string names;
    const auto pairs = CPairStore(session).Load();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (IsOnStore(pairs[i], store) || store.isDefault)
            names += (names.empty() ? "" : ", ") + PairLabel(pairs, i);
    }
    return names;
}

// Who runs a pair of the store just now; empty where nobody does or none can be told.
std::string RunOnStore(CProfileSession& session, const CStoreInfo& store) {
    try {
        for (const CTarnSetting& pair : CPairStore(session).Load()) {
            std::string holder;
            if (IsOnStore(pair, store) &&
                CPairLock().Take(session.Mapi(), pair, {}, nullptr, holder) == LockAnswer::Busy)
                return holder;
        }
    } catch (const CCommandError&) {
        // A list that cannot be read keeps no store from being removed.
    }
    return {};
}

int RemoveStore(CCommandContext& context, const std::string& name, bool force) {
    std::string profile;
    {
        CProfileSession& session = context.Session();
        profile = session.Name();
        const CStoreInfo store = session.FindStore(name);
        const std::string holder = RunOnStore(session, store);
        if (!holder.empty())
            throw CCommandError(ExitCode::Busy, "The store \"" + name + "\" is in use: " + holder,
                                "Try again when that run has ended.");
        if (!force) {
            const std::string pairs = PairsOnStore(session, store);
            if (!pairs.empty())
                throw CCommandError(
                    ExitCode::Guarded,
                    "The store \"" + name + "\" belongs to pairs or keeps their list: " + pairs,
                    "Remove those pairs first, or say --force.");
            long long items = 0;
            WalkFolders(session, session.OpenFolder(name),
                        [&](const CFolderRef&, const CFolderEntry& row, int) { items += row.items; });
            if (items > 0)
                throw CCommandError(ExitCode::Guarded,
                                    "The store \"" + name + "\" holds " + std::to_string(items) +
                                        " item(s), which would be removed with it",
                                    "If that is meant, say so with --force.");
        }
    }
    context.CloseSession();
    CProfileAdmin().RemoveStore(profile, name);
    context.Console().Note("Removed the store \"" + name + "\".");
    return Code(ExitCode::Done);
}

int SetDefaultStore(CCommandContext& context, const std::string& name) {
    CProfileSession& session = context.Session();
    const CStoreInfo store = session.FindStore(name);
    if (store.isDefault) return Code(ExitCode::Done);
    // The list of pairs lies in the default store and goes with it.
    const std::vector<CStoreInfo> stores = session.Stores();
    const auto former =
        std::find_if(stores.begin(), stores.end(), [](const CStoreInfo& s) { return s.isDefault; });
    if (former == stores.end())
        session.SetDefaultStore(store);
    else
        CPairStore(session).Move([&] { session.SetDefaultStore(store); },
                                 [&] { session.SetDefaultStore(*former); });
    context.Console().Note("\"" + name + "\" is the default store now.");
    return Code(ExitCode::Done);
}

}  // namespace

void AddStoreCommands(CCommandTable& table) {
    struct Arguments {
        std::string name;
        bool force = false;
        std::vector<std::string> habits;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("store", "Stores of a profile: each is a file of folders and items",
                                     "store create Home");
    table.AddCommand(group, "list", "List the stores, with counts", "store list --json", ListStores);
    CLI::App& create = table.AddCommand(group, "create", "Create a store; the first one becomes the default",
                                        "store create Home", [arguments](CCommandContext& context) {
                                            return CreateStore(context, arguments->name, arguments->habits);
                                        });
    create.add_option("NAME", arguments->name, "Its name")->required();
    std::string habits = "Let it do as some real stores do, to try things out; repeatable. ";
    for (const CStoreHabitName& habit : kStoreHabits)
        habits += std::string(habit.name) + ": " + habit.meaning + ". ";
    habits.pop_back();
    create.add_option("--habit", arguments->habits, habits)->allow_extra_args(false);
    CLI::App& remove = table.AddCommand(group, "remove", "Remove a store with its items",
                                        "store remove Old --force", [arguments](CCommandContext& context) {
                                            return RemoveStore(context, arguments->name, arguments->force);
                                        });
    remove.add_option("NAME", arguments->name, "Its name")->required();
    remove.add_flag("--force", arguments->force, "Also if it holds items or belongs to pairs");
    table
        .AddCommand(
            group, "default", "Make a store the default one; the list of pairs goes with it",
            "store default Home",
            [arguments](CCommandContext& context) { return SetDefaultStore(context, arguments->name); })
        .add_option("NAME", arguments->name, "Its name")
        ->required();
    AddStoreCareCommands(table, group);
}
