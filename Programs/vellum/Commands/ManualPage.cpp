#include <Programs/vellum/Commands/ManualPage.h>

#include <sstream>
#include <vector>

namespace {

std::string Escaped(const std::string& text) {
    std::string out;
    bool atLineStart = true;
    for (const char c : text) {
        if (atLineStart && (c == '.' || c == '\'')) out += "\\&";
        atLineStart = c == '\n';
        if (c == '\\')
            out += "\\e";
        else if (c == '-')
            out += "\\-";
        else
            out += c;
    }
    return out;
}

std::string Section(const std::string& title) {
    return ".SH " + title + "\n";
}

// Text with its line ends as they stand.
std::string Verbatim(const std::string& text) {
    return ".nf\n" + Escaped(text) + "\n.fi\n";
}

std::string Entry(const std::string& head, const std::string& text) {
    return ".TP\n.B " + Escaped(head) + "\n" + Escaped(text) + "\n";
}

std::string HeadOf(const CLI::Option& option) {
    std::string head;
    const auto add = [&](const std::string& name) { head += (head.empty() ? "" : ", ") + name; };
    if (option.get_positional()) add(option.get_name(true));
    for (const std::string& name : option.get_snames())
        add("-" + name);
    for (const std::string& name : option.get_lnames())
        add("--" + name);
    const bool takesValue = !option.get_positional() && option.get_type_size() != 0;
    return takesValue ? head + " " + option.get_type_name() : head;
}

std::string OptionsOf(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : app.get_options())
        if (option != app.get_help_ptr()) text += Entry(HeadOf(*option), option->get_description());
    return text;
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

// "Heading:" lines of the text at the end of the help become sections of the page.
std::string SectionsOf(const std::string& footer) {
    std::string page, block;
    const auto flush = [&] {
        if (!block.empty()) page += Verbatim(block);
        block.clear();
    };
    std::istringstream lines(footer);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == ':' && line.front() != ' ') {
            flush();
            line.pop_back();
            for (char& c : line)
                c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
            page += Section(line);
        } else if (!line.empty()) {
            block += (block.empty() ? "" : "\n") + line;
        }
    }
    flush();
    return page;
}

void AppendCommand(const CLI::App& command, const std::string& words, std::string& page) {
    const auto below = CommandsOf(command);
    for (const CLI::App* child : below)
        AppendCommand(*child, words + " " + child->get_name(), page);
    if (!below.empty()) return;
    std::string arguments;
    for (const CLI::Option* option : command.get_options())
        if (option->get_positional()) arguments += " " + option->get_name(true);
    page += ".SS " + Escaped(words + arguments) + "\n" + Escaped(command.get_description()) + "\n" +
            OptionsOf(command);
    const std::string example = command.get_footer();
    if (!example.empty()) page += ".PP\n" + Verbatim(example.substr(0, example.find("\n\n")));
}

}  // namespace

std::string ManualPage(const CLI::App& app) {
    const std::string description = app.get_description();
    const size_t firstParagraph = description.find("\n\n");
    std::string page = ".TH VELLUM 1 \"\" \"Vellum 10\" \"User Commands\"\n" + Section("NAME") +
                       "vellum \\- keep pairs of mail folders in step, in both directions\n" +
                       Section("SYNOPSIS") + ".B vellum\n.RI [ OPTIONS ]\n.I COMMAND\n.RI [ ARGUMENTS ]\n" +
                       Section("DESCRIPTION") + Escaped(description.substr(firstParagraph + 2)) + "\n" +
                       Section("COMMANDS");
    for (const CLI::App* command : CommandsOf(app))
        AppendCommand(*command, command->get_name(), page);
    return page + Section("OPTIONS OF ALL COMMANDS") + OptionsOf(app) + SectionsOf(app.get_footer());
}
