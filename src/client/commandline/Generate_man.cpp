#include <string>

#include "client/commandline/Generate.h"
#include "platform/UserDefaults.h"
#include "support/Version.h"

namespace kavaro {

namespace {

// Text of a paragraph as roff takes it.
std::string roff(std::string_view text) {
    std::string escaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool startsLine = i == 0 || text[i - 1] == '\n';
        if (startsLine && (c == '.' || c == '\'')) escaped += "\\&";
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            escaped += c;
        }
    }
    return escaped;
}

std::string bold(std::string_view text) {
    return "\\fB" + roff(text) + "\\fR";
}

std::string italic(std::string_view text) {
    return "\\fI" + roff(text) + "\\fR";
}

std::string section(const char* title) {
    return std::string(".SH \"") + title + "\"\n";
}

std::string item(const std::string& term, const std::string& text) {
    return ".TP\n" + term + "\n" + text + "\n";
}

std::string optionTerm(const CLI::Option& option) {
    std::string term;
    for (const std::string& name : option.get_snames()) term += bold("-" + name) + ", ";
    term += bold("--" + option.get_lnames().front());
    return option.get_type_name().empty() || option.get_expected_max() == 0
               ? term
               : term + " " + italic(option.get_type_name());
}

std::string options(const CLI::App& app) {
    std::string text;
    for (const CLI::Option* option : CommandLine::positionalsOf(app)) {
        text += item(italic(option->get_name()), roff(option->get_description()) + ".");
    }
    for (const CLI::Option* option : CommandLine::optionsOf(app)) {
        text += item(optionTerm(*option), roff(option->get_description()) + ".");
    }
    return text;
}

// The footer of a command's help, its first line ("Examples:") left out.
std::string examples(const CLI::App& app) {
    const std::string footer = app.get_footer();
    return ".nf\n" + roff(footer.substr(footer.find('\n') + 1)) + "\n.fi\n";
}

std::string commands(const CLI::App& app) {
    std::string text;
    for (const CLI::App* command : CommandLine::commandsOf(app)) {
        text += ".SS \"" + roff(CommandLine::synopsis(*command)) + "\"\n" + roff(command->get_description()) + ".\n";
        text += options(*command) + ".PP\n" + examples(*command) + commands(*command);
    }
    return text;
}

constexpr const char* kDescription =
    "kavaro shows how folders use the disk. It asks a server, kavarod, which it finds on the bus or starts for the\n"
    "time of the job, and shows the result: the total, then the largest entries with their share, the room they take\n"
    "on disk, their logical size and the number of files and folders in them. A file with several names counts once\n"
    "for each. Folders that could not be read or were left out are counted, and the total is then marked with \"≥\".\n"
    ".PP\n"
    "While a job runs, a line on the terminal tells how far it is. Ctrl\\-C stops the job and shows what was measured\n"
    "until then; a second one leaves at once.\n";

constexpr const char* kJson =
    "With \\fB\\-\\-json\\fR, an object holds \\fIpath\\fR, \\fIlogicalSize\\fR, \\fIphysicalSize\\fR, \\fIfiles\\fR,\n"
    "\\fIfolders\\fR, \\fIseconds\\fR and \\fIchildren\\fR; sizes are bytes. Each of the children holds \\fIname\\fR,\n"
    "\\fIkind\\fR (file or folder), \\fIinode\\fR, the same sizes and counts, \\fImodified\\fR (ISO 8601, UTC) and, "
    "for\n"
    "a folder above the last level, its own \\fIchildren\\fR. Several folders make an array of such objects. Where "
    "they\n"
    "apply there are also \\fIpartial\\fR and \\fIlowerBound\\fR (true), \\fIunread\\fR (objects with \\fIpath\\fR "
    "and\n"
    "\\fIreason\\fR), \\fIchildrenLeftOut\\fR (a number, after \\fIchildren\\fR that \\fB\\-\\-top\\fR cut short) and\n"
    "\\fInameRaw\\fR, \\fIpathRaw\\fR: the bytes in base64 of a name or path that is not UTF\\-8.\n";

constexpr const char* kFindJson =
    ".PP\n"
    "With \\fBkavaro find \\-\\-json\\fR, an object holds \\fIpath\\fR, \\fIfound\\fR and \\fIseconds\\fR. Each entry "
    "that was\n"
    "found holds \\fIpath\\fR, \\fIkind\\fR (file, folder or link), \\fIinode\\fR, \\fIlogicalSize\\fR, "
    "\\fIphysicalSize\\fR and\n"
    "\\fImodified\\fR. \\fIpartial\\fR, \\fIlowerBound\\fR, \\fIunread\\fR and \\fIpathRaw\\fR are as above.\n";

constexpr const char* kCleanupJson =
    ".PP\n"
    "With \\fBkavaro languages \\-\\-json\\fR, an object holds \\fIpath\\fR, \\fIlanguages\\fR, the sizes, "
    "\\fIfiles\\fR and\n"
    "\\fIfolders\\fR of all that could go, and \\fIseconds\\fR. Each language holds \\fIlanguage\\fR, "
    "\\fIflag\\fR (a\n"
    "country, or null), the same sizes and counts and, without \\fB\\-\\-summary\\fR, \\fIentries\\fR: its folders, "
    "each with\n"
    "\\fIpath\\fR, \\fIinode\\fR, sizes, \\fIfiles\\fR and \\fImodified\\fR. With \\fBkavaro nibs "
    "\\-\\-json\\fR there are\n"
    "\\fInibs\\fR in place of languages, and no folders.\n";

constexpr const char* kSlimJson =
    ".PP\n"
    "With \\fBkavaro slim \\-\\-json\\fR, an object holds \\fIpath\\fR, \\fIprograms\\fR, \\fIfreed\\fR (bytes of all "
    "code "
    "that goes)\n"
    "and \\fIseconds\\fR. Each program holds \\fIpath\\fR, \\fIinode\\fR, sizes, \\fImodified\\fR, "
    "\\fIarchitectures\\fR (objects\n"
    "with \\fIarchitecture\\fR, \\fIsize\\fR and \\fIgoes\\fR) and \\fIfreed\\fR.\n";

}  // namespace

std::string generateManPage(const CommandLine& commandLine) {
    const CLI::App& app = commandLine.app();
    std::string page = ".\\\" Written by \"kavaro --generate man\".\n";
    page += std::string(".TH KAVARO 1 \"\" \"kavaro ") + KAVARO_VERSION + "\" \"User Commands\"\n";
    page += section("NAME") + "kavaro \\- shows how folders use the disk\n";
    page += section("SYNOPSIS");
    const char* separator = "";
    for (const CLI::App* command : CommandLine::commandsOf(app)) {
        page += separator + bold(CommandLine::synopsis(*command)) + "\n";
        separator = ".br\n";
    }
    page += section("DESCRIPTION") + kDescription;
    page += section("OPTIONS") + options(app);
    page += section("COMMANDS") + commands(app);
    page += section("JSON") + kJson + kFindJson + kCleanupJson + kSlimJson;
    page += section("EXIT STATUS") + item(bold("0"), "Done.") +
            item(bold("1"), "Something failed; standard error says what.");
    page += item(bold("2"), "Wrong usage.") +
            item(bold("130"), "Interrupted. events record and events watch end so with 0.");
    page += section("ENVIRONMENT");
    page +=
        item(bold("NO_COLOR"), "When it is not empty, there are no colours unless \\fB\\-\\-color\\fR asks for them.");
    page += item(bold("COLORTERM"), "truecolor or 24bit: exact colours; otherwise the nearest of 256.");
    page += item(bold("XDG_CONFIG_HOME"), "Where settings are kept; ~/.config when it is not set.");
    page += section("FILES");
    page += item(italic("$XDG_CONFIG_HOME/" + std::string(kPreferencesDomain) + ".plist"), "The settings.");
    page += section("EXAMPLES") + examples(app);
    page += section("SEE ALSO") + "\\fBdu\\fR(1), \\fBncdu\\fR(1)\n";
    return page;
}

}  // namespace kavaro
