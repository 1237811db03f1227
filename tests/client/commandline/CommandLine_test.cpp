#include "client/commandline/CommandLine.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/Version.h"

namespace kavaro {
namespace {

using Kind = ParsedCommand::Kind;

ParsedCommand parse(const std::vector<std::string>& arguments) {
    return CommandLine().parse(arguments);
}

std::string wrong(const std::vector<std::string>& arguments) {
    const ParsedCommand parsed = parse(arguments);
    EXPECT_EQ(parsed.kind, Kind::wrong);
    return parsed.text;
}

using Words = std::vector<std::string>;

TEST(CommandLine, sizeWithoutOptions) {
    const ParsedCommand parsed = parse({"size", "/usr"});
    ASSERT_EQ(parsed.kind, Kind::size) << parsed.text;
    EXPECT_EQ(parsed.size.folders, Words{"/usr"});
    EXPECT_EQ(parsed.size.depth, 1);
    EXPECT_FALSE(parsed.size.top);
    EXPECT_EQ(parsed.size.sort, SortKey::size);
    EXPECT_EQ(parsed.size.color, ColorChoice::automatic);
    EXPECT_EQ(parsed.size.bus, "session");
    EXPECT_FALSE(parsed.size.exportFile);
    EXPECT_FALSE(parsed.size.apparent || parsed.size.sameFileSystem || parsed.size.json || parsed.size.errors ||
                 parsed.size.embedded || parsed.size.verbose || parsed.size.statistics);
}

TEST(CommandLine, sizeWithAllOptions) {
    const ParsedCommand parsed =
        parse({"size", "--depth", "3", "--top=0", "a", "--sort", "date", "--apparent", "--same-file-system", "--json",
               "--errors", "--embedded", "--verbose", "--color", "never", "--bus", "unix:path=/x", "b"});
    ASSERT_EQ(parsed.kind, Kind::size) << parsed.text;
    EXPECT_EQ(parsed.size.folders, (Words{"a", "b"}));
    EXPECT_EQ(parsed.size.depth, 3);
    EXPECT_EQ(parsed.size.top, 0);
    EXPECT_EQ(parsed.size.sort, SortKey::date);
    EXPECT_EQ(parsed.size.color, ColorChoice::never);
    EXPECT_EQ(parsed.size.bus, "unix:path=/x");
    EXPECT_TRUE(parsed.size.apparent && parsed.size.sameFileSystem && parsed.size.json && parsed.size.errors &&
                parsed.size.embedded && parsed.size.verbose);
}

TEST(CommandLine, words) {
    EXPECT_EQ(parse({"size", "x", "--sort", "size"}).size.sort, SortKey::size);
    EXPECT_EQ(parse({"size", "x", "--sort", "name"}).size.sort, SortKey::name);
    EXPECT_EQ(parse({"size", "x", "--sort", "count"}).size.sort, SortKey::count);
    EXPECT_EQ(parse({"size", "x", "--color", "always"}).size.color, ColorChoice::always);
    EXPECT_EQ(parse({"size", "x", "--color", "auto"}).size.color, ColorChoice::automatic);
    EXPECT_EQ(parse({"size", "x", "--bus", "system"}).size.bus, "system");
}

TEST(CommandLine, foldersOfAnyName) {
    for (const std::string name :
         {"stop", "size", "[a,b]", "{}", "[]", "a,b", "", "a\nb", "\xFF", "%%", "a b", "-", "\"q\"", "=x", "++"}) {
        const ParsedCommand parsed = parse({"size", name});
        ASSERT_EQ(parsed.kind, Kind::size) << name << ": " << parsed.text;
        EXPECT_EQ(parsed.size.folders, Words{name});
    }
    EXPECT_EQ(parse({"size", "--json", "--", "--json", "-x"}).size.folders, (Words{"--json", "-x"}));
    EXPECT_EQ(parse({"size", "[]", "{}", "[x]"}).size.folders, (Words{"[]", "{}", "[x]"}));
}

TEST(CommandLine, exportFindsItsFile) {
    const auto exported = [](const Words& arguments) {
        const ParsedCommand parsed = parse(arguments);
        EXPECT_EQ(parsed.kind, Kind::size) << parsed.text;
        return parsed.size.exportFile.value_or("none") + " " + parsed.size.folders.at(0);
    };
    EXPECT_EQ(exported({"size", "--export", "ncdu", "/usr"}), "- /usr");
    EXPECT_EQ(exported({"size", "/usr", "--export", "ncdu"}), "- /usr");
    EXPECT_EQ(exported({"size", "--export", "ncdu", "out", "/usr"}), "out /usr");
    EXPECT_EQ(exported({"size", "/usr", "--export", "ncdu", "out"}), "out /usr");
    EXPECT_EQ(exported({"size", "--export", "ncdu", "-", "/usr"}), "- /usr");
    EXPECT_EQ(exported({"size", "--export", "ncdu", "/usr", "--verbose"}), "- /usr");
    EXPECT_EQ(exported({"size", "--export", "ncdu", "--verbose", "/usr"}), "- /usr");
    EXPECT_EQ(exported({"size", "--export", "ncdu", "--", "/usr"}), "- /usr");
    EXPECT_EQ(exported({"size", "--export=ncdu", "/usr"}), "- /usr");
}

TEST(CommandLine, find) {
    const ParsedCommand plain = parse({"find", "/usr"});
    ASSERT_EQ(plain.kind, Kind::find) << plain.text;
    EXPECT_EQ(plain.find.folders, Words{"/usr"});
    EXPECT_FALSE(plain.find.kind || plain.find.size || plain.find.modified || !plain.find.name.empty());
    EXPECT_FALSE(plain.find.exact || plain.find.json || plain.find.null || plain.find.errors || plain.find.listRanges ||
                 plain.find.embedded || plain.find.sameFileSystem || plain.find.verbose);
    const ParsedCommand all = parse({"find",
                                     "--kind",
                                     "file",
                                     "a",
                                     "--size",
                                     "1 MB..",
                                     "--modified=Last Week",
                                     "--name",
                                     "[x",
                                     "--exact",
                                     "-0",
                                     "--errors",
                                     "--list-ranges",
                                     "--embedded",
                                     "--same-file-system",
                                     "--verbose",
                                     "--bus",
                                     "system",
                                     "--",
                                     "-b",
                                     "[c]"});
    ASSERT_EQ(all.kind, Kind::find) << all.text;
    EXPECT_EQ(all.find.folders, (Words{"a", "-b", "[c]"}));
    EXPECT_EQ(all.find.kind, "file");
    EXPECT_EQ(all.find.size, "1 MB..");
    EXPECT_EQ(all.find.modified, "Last Week");
    EXPECT_EQ(all.find.name, "[x");
    EXPECT_EQ(all.find.bus, "system");
    EXPECT_TRUE(all.find.exact && all.find.null && all.find.errors && all.find.listRanges && all.find.embedded &&
                all.find.sameFileSystem && all.find.verbose);
    EXPECT_EQ(parse({"find", "x", "--size", ""}).find.size, "");
    EXPECT_TRUE(parse({"find", "x", "--json"}).find.json);
    EXPECT_EQ(parse({"find", "--list-ranges"}).kind, Kind::find);
    EXPECT_EQ(parse({"find", "[a,b]", "{}"}).find.folders, (Words{"[a,b]", "{}"}));
    EXPECT_EQ(parse({"find", "x", "--name", "[a,b]"}).find.name, "[a,b]");
    EXPECT_EQ(parse({"find", "x", "--name", "-a"}).find.name, "-a");
}

TEST(CommandLine, slim) {
    const ParsedCommand plain = parse({"slim", "/srv"});
    ASSERT_EQ(plain.kind, Kind::slim) << plain.text;
    EXPECT_EQ(plain.slim.folders, Words{"/srv"});
    EXPECT_EQ(plain.slim.architectures, Words{});
    EXPECT_FALSE(plain.slim.apply || plain.slim.json || plain.slim.confirm.yes || plain.slim.confirm.dryRun);
    const ParsedCommand all = parse({"slim", "--arch", "arm64", "a", "--apply", "--arch=[x]", "--dry-run", "--yes",
                                     "--errors", "--color", "always", "--embedded", "--", "-b"});
    ASSERT_EQ(all.kind, Kind::slim) << all.text;
    EXPECT_EQ(all.slim.folders, (Words{"a", "-b"}));
    EXPECT_EQ(all.slim.architectures, (Words{"arm64", "[x]"}));
    EXPECT_EQ(all.slim.color, ColorChoice::always);
    EXPECT_TRUE(all.slim.apply && all.slim.confirm.yes && all.slim.confirm.dryRun && all.slim.errors &&
                all.slim.embedded);
    EXPECT_EQ(parse({"slim", "--json", "--apply", "x"}).kind, Kind::wrong);
    for (const char* option : {"--yes", "--dry-run"})
        EXPECT_EQ(parse({"slim", option, "x"}).text,
                  "--yes and --dry-run go with --apply. See \"kavaro slim --help\".");
    EXPECT_EQ(parse({"slim", "--apply"}).text,
              "no folder given. Name at least one, for example: kavaro slim /srv/apps. See \"kavaro slim --help\".");
}

TEST(CommandLine, events) {
    const ParsedCommand watch = parse({"events", "watch"});
    ASSERT_EQ(watch.kind, Kind::eventsWatch) << watch.text;
    EXPECT_EQ(watch.events.volume, "");
    EXPECT_EQ(watch.events.every, 1);
    EXPECT_FALSE(watch.events.json);
    const ParsedCommand json = parse({"events", "watch", "--json", "--every", "0.5", "--volume", "/srv"});
    ASSERT_EQ(json.kind, Kind::eventsWatch) << json.text;
    EXPECT_EQ(json.events.volume, "/srv");
    EXPECT_EQ(json.events.every, 0.5);
    EXPECT_TRUE(json.events.json);
    const ParsedCommand record = parse({"events", "record", "--for", "60", "--output", "a b"});
    ASSERT_EQ(record.kind, Kind::eventsRecord) << record.text;
    EXPECT_EQ(record.events.seconds, 60);
    EXPECT_EQ(record.events.output, "a b");
    const ParsedCommand replay = parse({"events", "replay", "file"});
    ASSERT_EQ(replay.kind, Kind::eventsReplay) << replay.text;
    EXPECT_EQ(replay.events.file, "file");
    EXPECT_EQ(parse({"events", "watch", "--every", "0"}).text,
              "--every: \"0\" is not a number of seconds from 0.01 to 31622400, which is 366 days. See \"kavaro events "
              "watch --help\".");
    for (const Words& arguments :
         {Words{"events"}, Words{"events", "nonsense"}, Words{"events", "replay"}, Words{"events", "replay", ""},
          Words{"events", "replay", "a", "b"}, Words{"events", "record", "--for", "x"},
          Words{"events", "record", "--for", "1e5"}, Words{"events", "record", "--for", "99999999999"},
          Words{"events", "record", "--json"}, Words{"events", "watch", "--output", "x"},
          Words{"events", "watch", "--volume", ""}, Words{"events", "watch", "/srv"}})
        EXPECT_EQ(parse(arguments).kind, Kind::wrong) << arguments.back();
}

TEST(CommandLine, languagesAndNibs) {
    const ParsedCommand plain = parse({"languages", "/srv"});
    ASSERT_EQ(plain.kind, Kind::languages) << plain.text;
    EXPECT_EQ(plain.cleanup.folders, Words{"/srv"});
    EXPECT_EQ(plain.cleanup.color, ColorChoice::automatic);
    EXPECT_FALSE(plain.cleanup.summary || plain.cleanup.json || plain.cleanup.errors || plain.cleanup.embedded);
    const ParsedCommand all = parse({"languages", "--summary", "a", "--json", "--errors", "--color", "never", "--bus",
                                     "system", "--embedded", "--same-file-system", "--verbose", "--", "-b"});
    ASSERT_EQ(all.kind, Kind::languages) << all.text;
    EXPECT_EQ(all.cleanup.folders, (Words{"a", "-b"}));
    EXPECT_EQ(all.cleanup.color, ColorChoice::never);
    EXPECT_EQ(all.cleanup.bus, "system");
    EXPECT_TRUE(all.cleanup.summary && all.cleanup.json && all.cleanup.errors && all.cleanup.embedded &&
                all.cleanup.sameFileSystem && all.cleanup.verbose);
    const ParsedCommand nibs = parse({"nibs", "[a,b]", "--json", "--color=always"});
    ASSERT_EQ(nibs.kind, Kind::nibs) << nibs.text;
    EXPECT_EQ(nibs.cleanup.folders, Words{"[a,b]"});
    EXPECT_EQ(nibs.cleanup.color, ColorChoice::always);
    EXPECT_TRUE(nibs.cleanup.json);
    EXPECT_EQ(parse({"nibs", "--summary", "x"}).kind, Kind::wrong);
    EXPECT_EQ(parse({"nibs"}).text,
              "no folder given. Name at least one, for example: kavaro nibs /srv/apps. See \"kavaro nibs --help\".");
}

TEST(CommandLine, otherCommands) {
    EXPECT_EQ(parse({"stop"}).kind, Kind::stop);
    EXPECT_EQ(parse({"stop", "--bus", "system"}).bus, "system");
    EXPECT_EQ(parse({"version"}).kind, Kind::version);
    EXPECT_EQ(parse({"--generate", "man"}).kind, Kind::generate);
    EXPECT_EQ(parse({"--generate", "fish"}).format, "fish");
    EXPECT_EQ(parse({"--version"}).text, std::string("kavaro ") + KAVARO_VERSION + "\n");
}

TEST(CommandLine, defaults) {
    const ParsedCommand all = parse({"defaults", "read"});
    EXPECT_EQ(all.kind, Kind::defaultsRead);
    EXPECT_EQ(all.domain, "org.kavaro.Kavaro");
    EXPECT_EQ(all.key, "");
    EXPECT_EQ(parse({"defaults", "read", "org.x", "k"}).key, "k");
    const ParsedCommand write = parse({"defaults", "write", "org.x", "k", "--", "-1"});
    EXPECT_EQ(write.kind, Kind::defaultsWrite) << write.text;
    EXPECT_EQ(write.domain + " " + write.key + " " + write.value, "org.x k -1");
    EXPECT_EQ(parse({"defaults", "write", "org.x", "k", ""}).kind, Kind::defaultsWrite);
    EXPECT_EQ(parse({"defaults", "delete", "org.x", "k"}).kind, Kind::defaultsDelete);
    wrong({"defaults"});
    wrong({"defaults", "write", "org.x", "k"});
    wrong({"defaults", "delete", "org.x"});
    wrong({"defaults", "read", "a", "b", "c"});
    EXPECT_EQ(wrong({"defaults", "write", "org.x", "", "1"}),
              "KEY: the name of a setting is not empty. See \"kavaro defaults write --help\".");
    EXPECT_NE(wrong({"defaults", "read", "../x"}).find("\"../x\" is no name of a domain"), std::string::npos);
}

TEST(CommandLine, wrongUsageSaysWhatAndWhere) {
    EXPECT_EQ(wrong({}), "a command is missing. See \"kavaro --help\".");
    EXPECT_EQ(wrong({"/usr"}), "\"/usr\" is no command. To measure a folder: kavaro size /usr. See \"kavaro --help\".");
    EXPECT_EQ(wrong({"size"}),
              "no folder given. Name at least one, for example: kavaro size /usr. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--depth", "-1"}),
              "--depth: \"-1\" is not a whole number from 0 up. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--top", "99999999999999999999"}),
              "--top: 99999999999999999999 is more than 2147483647. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--sort", "color"}),
              "--sort: \"color\" is not size, name, date or count. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--bus", "tram"}),
              "--bus: \"tram\" is not session, system or a bus address such as unix:path=/run/bus. "
              "See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--export", "tar"}), "--export: \"tar\" is not ncdu. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "--export", "ncdu", "f", "x", "y"}),
              "--export: takes one folder, not 2. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "x", "--depth"}), "--depth: its value is missing. See \"kavaro size --help\".");
    EXPECT_EQ(wrong({"size", "--depth", "1", "x", "--depth=2"}),
              "--depth: given more than once. See \"kavaro size --help\".");
    for (const Words& arguments :
         {Words{"size", "x", "--depth"}, Words{"size", "x", "--depth", "2x"}, Words{"size", "x", "--nonsense"},
          Words{"size", "x", "--json", "--export", "ncdu"}, Words{"size", "x", "--export"}, Words{"stop", "now"},
          Words{"version", "--depth", "1"}, Words{"--generate", "pdf"}, Words{"--generate"}, Words{"-x"},
          Words{"size", "x", "--export", "ncdu", ""}, Words{"size", "--depth", "", "x"}, Words{"\n"}}) {
        EXPECT_NE(wrong(arguments).find("--help\"."), std::string::npos);
        EXPECT_EQ(wrong(arguments).find('\n'), std::string::npos) << wrong(arguments);
    }
}

TEST(CommandLine, helpOnEverythingWithAnExample) {
    for (const std::string command :
         {"", "size", "find", "languages", "nibs", "slim", "events", "events record", "events replay", "events watch",
          "stop", "version", "defaults", "defaults read", "defaults write", "defaults delete"}) {
        for (const char* flag : {"-h", "--help"}) {
            Words arguments;
            std::istringstream words(command);
            for (std::string word; words >> word;) arguments.push_back(word);
            arguments.push_back(flag);
            const ParsedCommand parsed = parse(arguments);
            ASSERT_EQ(parsed.kind, Kind::text) << command;
            EXPECT_NE(parsed.text.find("Usage: kavaro" + (command.empty() ? "" : " " + command) + " [OPTIONS]"),
                      std::string::npos)
                << parsed.text;
            EXPECT_NE(parsed.text.find("Examples:\n  kavaro"), std::string::npos) << parsed.text;
            EXPECT_EQ(parsed.text.find("--generate"), std::string::npos);
            EXPECT_EQ(parsed.text.find("--statistics"), std::string::npos);
        }
    }
    EXPECT_EQ(parse({"size", "--nonsense", "--help"}).kind, Kind::text);
}

}  // namespace
}  // namespace kavaro
