#include "client/commandline/Generate.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/wait.h>

#include "TempFolder.h"

extern char** environ;

namespace kavaro {
namespace {

struct Ran {
    int status = -1;
    std::string output;  // both streams
};

// Runs a program of the system with its output in a file.
Ran run(std::vector<std::string> arguments) {
    TempFolder folder;
    const std::string file = folder.write("output", "");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, file.c_str(), O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    std::vector<char*> words;
    for (std::string& argument : arguments) words.push_back(argument.data());
    words.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, words[0], &actions, nullptr, words.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        ADD_FAILURE() << arguments[0] << " cannot be started: is its package installed?";
        return {};
    }
    Ran result;
    EXPECT_EQ(waitpid(pid, &result.status, 0), pid);
    result.output = folder.read("output");
    return result;
}

// Bash's answer to a line with the cursor at its end, sorted, one a line. What bash is to complete itself comes first.
std::string completed(const std::string& line) {
    TempFolder folder;
    folder.write("kavaro.bash", generateBashCompletion(CommandLine()));
    folder.write("try",
                 "cd \"$1\"; compopt() { echo \"$*\"; }; source ./kavaro.bash; read -ra COMP_WORDS <<<\"$2\"; [[ $2 != "
                 "*' ' ]] || COMP_WORDS+=('')\n"
                 "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _kavaro; printf '%s\\n' \"${COMPREPLY[@]}\" | sort\n");
    return run({"bash", folder.path("try"), folder.path(), line}).output;
}

TEST(Generate, manPageHasNoFaults) {
    TempFolder folder;
    const std::string page = folder.write("kavaro.1", generateManPage(CommandLine()));
    const Ran ran = run({"groff", "-man", "-Kutf8", "-Tutf8", "-ww", "-z", page});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.output, "");
}

TEST(Generate, manPageTellsEverything) {
    TempFolder folder;
    const std::string page = folder.write("kavaro.1", generateManPage(CommandLine()));
    const std::string text = run({"groff", "-man", "-Kutf8", "-Tascii", "-P-cbou", page}).output;
    for (const char* part :
         {"NAME", "kavaro - shows", "kavaro size [OPTIONS] FOLDER...", "--depth N", "--export ncdu [FILE]",
          "kavaro defaults write [OPTIONS] DOMAIN KEY VALUE", "-h, --help", "EXIT STATUS", "130",
          "kavaro find [OPTIONS] FOLDER...", "-0, --null", "kavaro languages [OPTIONS] FOLDER...",
          "kavaro nibs [OPTIONS] FOLDER...", "kavaro slim [OPTIONS] FOLDER...", "kavaro events record [OPTIONS]",
          "kavaro events replay [OPTIONS] FILE", "nameRaw", "kavaro size --json /usr", "NO_COLOR"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text;
    }
    EXPECT_EQ(text.find("--generate"), std::string::npos);
}

TEST(Generate, bashCompletionParses) {
    TempFolder folder;
    const std::string script = folder.write("kavaro", generateBashCompletion(CommandLine()));
    const Ran ran = run({"bash", "-n", script});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.output, "");
}

TEST(Generate, bashCompletes) {
    EXPECT_EQ(completed("kavaro s"), "size\nslim\nstop\n");
    EXPECT_EQ(completed("kavaro "),
              "--help\n--version\n-"
              "h\ndefaults\nduplicates\nevents\nfind\nlanguages\nnibs\nsize\nslim\nstop\ntrash\nversion\n");
    EXPECT_EQ(completed("kavaro size --s"), "--same-file-system\n--sort\n");
    EXPECT_EQ(completed("kavaro size --sort "), "count\ndate\nname\nsize\n");
    EXPECT_EQ(completed("kavaro size --json --color a"), "always\nauto\n");
    EXPECT_EQ(completed("kavaro size --depth "), "\n");
    EXPECT_EQ(completed("kavaro size --color = n"), "never\n") << "bash splits --color=n so";
    EXPECT_EQ(completed("kavaro size --color ="), "always\nauto\nnever\n");
    EXPECT_EQ(completed("kavaro size f"), "-o dirnames\n\n");
    EXPECT_EQ(completed("kavaro size --export "), "ncdu\n");
    EXPECT_EQ(completed("kavaro size --export ncdu f"), "-o default\n\n");
    EXPECT_EQ(completed("kavaro size --export ncdu file f"), "-o dirnames\n\n");
    EXPECT_EQ(completed("kavaro find --kind "), "file\nfolder\nlink\n");
    EXPECT_EQ(completed("kavaro find --list"), "--list-ranges\n");
    EXPECT_EQ(completed("kavaro languages --s"), "--same-file-system\n--summary\n");
    EXPECT_EQ(completed("kavaro nibs --color n"), "never\n");
    EXPECT_EQ(completed("kavaro trash f"), "-o default\n\n");
    EXPECT_EQ(completed("kavaro defaults "), "--help\n-h\ndelete\nread\nwrite\n");
    EXPECT_EQ(completed("kavaro defaults write o"), "org.kavaro.Kavaro\n");
    EXPECT_EQ(completed("kavaro events "), "--help\n-h\nrecord\nreplay\nwatch\n");
    EXPECT_EQ(completed("kavaro events watch --volume f"), "-o dirnames\n\n");
    EXPECT_EQ(completed("kavaro events replay f"), "-o default\n\n");
    EXPECT_EQ(completed("kavaro stop --bus s"), "session\nsystem\n");
}

TEST(Generate, zshTakesValuesInTheSameWordToo) {
    const std::string script = generateZshCompletion(CommandLine());
    EXPECT_NE(script.find("'--color=[Colours"), std::string::npos) << script;
    EXPECT_NE(script.find("'--json[Write"), std::string::npos) << script;
}

TEST(Generate, everyOptionIsInEveryScript) {
    const CommandLine commandLine;
    for (const char* format : {"man", "bash", "zsh", "fish"}) {
        const std::string text = generate(commandLine, format);
        for (const CLI::App* command : CommandLine::commandsOf(commandLine.app())) {
            EXPECT_NE(text.find(command->get_name()), std::string::npos) << format << " " << command->get_name();
            for (const CLI::Option* option : CommandLine::optionsOf(*command)) {
                std::string name = option->get_lnames().front();
                if (format == std::string("man")) {
                    for (std::size_t at = 0; (at = name.find('-', at)) != std::string::npos; at += 2) {
                        name.insert(at, 1, '\\');
                    }
                }
                EXPECT_NE(text.find(name), std::string::npos) << format << " " << name;
            }
        }
    }
}

}  // namespace
}  // namespace kavaro
