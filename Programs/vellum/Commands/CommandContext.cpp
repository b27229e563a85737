#include <Programs/vellum/Commands/CommandContext.h>

CProfileSession& CCommandContext::Session() {
    if (!m_session) m_session = std::make_unique<CProfileSession>(m_options.profile);
    return *m_session;
}

CLI::App& CCommandTable::AddGroup(const std::string& name, const std::string& text,
                                  const std::string& example) {
    CLI::App* group = m_app.add_subcommand(name, text);
    group->require_subcommand(1);
    group->footer("Example:\n  vellum " + example);
    return *group;
}

CLI::App& CCommandTable::AddCommand(CLI::App& group, const std::string& name, const std::string& text,
                                    const std::string& example, CommandAction action) {
    CLI::App* command = group.add_subcommand(name, text);
    command->footer("Example:\n  vellum " + example + "\n\nOptions of all commands: vellum --help");
    command->callback([this, action = std::move(action)] { m_chosen = action; });
    return *command;
}
