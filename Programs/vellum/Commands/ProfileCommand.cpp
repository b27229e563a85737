#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Console/Utf8.h>
#include <Programs/vellum/Session/ProfileAdmin.h>
#include <Programs/vellum/Sync/LastProtocol.h>

namespace {

int ListProfiles(CCommandContext& context) {
    const CProfileAdmin admin;
    CListing listing({{"name", "Profile"}, {"default", "Default"}, {"stores", "Stores"}},
                     "There are no profiles yet. Create one:  vellum profile create NAME");
    for (const CProfileInfo& profile : admin.Profiles())
        listing.AddRow({Utf8FromNarrow(profile.name),
                        {profile.isDefault, profile.isDefault ? "yes" : ""},
                        admin.Stores(profile.name).size()});
    listing.Print(context.Console(), context.Json());
    return Code(ExitCode::Done);
}

int CreateProfile(CCommandContext& context, const std::string& name) {
    CProfileAdmin().Create(name);
    context.Console().Note("Created the profile \"" + name + "\".");
    return Code(ExitCode::Done);
}

int RemoveProfile(CCommandContext& context, const std::string& name, bool force) {
    CProfileAdmin admin;
    admin.Resolve(name);
    const auto stores = admin.Stores(name);
    if (!stores.empty() && !force)
        throw CCommandError(ExitCode::Guarded,
                            "The profile \"" + name + "\" has " + std::to_string(stores.size()) +
                                " store(s), which would be removed with all their items",
                            "If that is meant, say so with --force.");
    admin.Remove(name);
    ForgetLastRun(name);
    context.Console().Note("Removed the profile \"" + name + "\".");
    return Code(ExitCode::Done);
}

int SetDefaultProfile(CCommandContext& context, const std::string& name) {
    CProfileAdmin().SetDefault(name);
    context.Console().Note("\"" + name + "\" is the default profile now.");
    return Code(ExitCode::Done);
}

}  // namespace

void AddProfileCommands(CCommandTable& table) {
    struct Arguments {
        std::string name;
        bool force = false;
    };
    auto arguments = std::make_shared<Arguments>();
    CLI::App& group = table.AddGroup("profile", "Profiles: each holds stores and folder pairs of its own",
                                     "profile create me");
    table.AddCommand(group, "list", "List the profiles", "profile list --json", ListProfiles);
    table
        .AddCommand(group, "create", "Create a profile; the first one becomes the default",
                    "profile create me",
                    [arguments](CCommandContext& context) { return CreateProfile(context, arguments->name); })
        .add_option("NAME", arguments->name, "Its name")
        ->required();
    CLI::App& remove = table.AddCommand(group, "remove", "Remove a profile with its stores",
                                        "profile remove old --force", [arguments](CCommandContext& context) {
                                            return RemoveProfile(context, arguments->name, arguments->force);
                                        });
    remove.add_option("NAME", arguments->name, "Its name")->required();
    remove.add_flag("--force", arguments->force, "Also if it has stores");
    table
        .AddCommand(
            group, "default", "Make a profile the one used without --profile", "profile default me",
            [arguments](CCommandContext& context) { return SetDefaultProfile(context, arguments->name); })
        .add_option("NAME", arguments->name, "Its name")
        ->required();
}
