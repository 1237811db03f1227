#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/commandline/RunCommandLine.h"

namespace kavaro {

class FakeClock : public Clock {
  public:
    double now = 1000;
    double monotonicSeconds() override { return now; }
    double wallSeconds() override { return 1700000000; }
    void sleep(double seconds) override { now += seconds; }
};

// What a descriptor was written; in a file without a name.
class WrittenBytes {
  public:
    WrittenBytes() : _file(std::tmpfile()) { EXPECT_NE(_file, nullptr); }
    WrittenBytes(const WrittenBytes&) = delete;
    WrittenBytes& operator=(const WrittenBytes&) = delete;
    ~WrittenBytes() { std::fclose(_file); }
    int fd() const { return fileno(_file); }
    std::string text() const {
        std::string bytes(static_cast<std::size_t>(lseek(fd(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(fd(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

  private:
    std::FILE* _file;
};

// Runs command lines with sources made of a function, and keeps what they wrote.
class CommandRun {
  public:
    using Measure = std::function<Measurement(const std::string&, const MeasurementSource::Callbacks&)>;

    CommandRun() {
        context.output = _output.fd();
        context.error = _error.fd();
        context.outputColumns = context.errorColumns = [this] { return columns; };
        context.clock = &clock;
        context.signalCount = [this] { return signals; };
        context.setLeaveAtOnce = [this](bool on) { leavesAtOnce.push_back(on); };
        context.leaveAtSignal = [this](int count) { leavesAtSignal = count; };
        context.remoteSource = [this](const RemoteOptions& options) {
            remotes.push_back(options);
            return std::make_unique<Source>(*this);
        };
        context.embeddedSource = [this] {
            ++embedded;
            return std::make_unique<Source>(*this);
        };
        context.beginQuestion = [this] { askedBeforeBegin.push_back(asked); };
        context.quickSource = [this] {
            ++quick;
            return std::make_unique<Source>(*this);
        };
        context.readAnswer = [this]() -> std::optional<std::string> {
            ++asked;
            return typed;
        };
        context.serverControl = [this](const RemoteOptions& options) {
            remotes.push_back(options);
            return std::make_unique<Control>(*this);
        };
    }

    int run(const std::vector<std::string>& arguments) { return runCommandLine(arguments, context); }
    std::string output() const { return _output.text(); }
    std::string error() const { return _error.text(); }

    // Measures everything as one tree made by `tree`, with the asked path.
    void measureAs(std::function<TuvRef<TuvDirNode>()> tree, std::function<void(Measurement&)> change = {}) {
        measure = [tree = std::move(tree), change = std::move(change)](const std::string& path,
                                                                       const MeasurementSource::Callbacks&) {
            Measurement measurement;
            measurement.path = path;
            measurement.root = tree();
            measurement.root->setFileName(path);
            measurement.seconds = 1.2345;
            if (change) change(measurement);
            return measurement;
        };
    }

    CommandContext context;
    FakeClock clock;
    Measure measure;
    // What the server's other commands come to; nothing else is asked of it where this is empty.
    std::function<CommandReply(std::string_view, const std::vector<BusValue>&, const std::function<bool()>&)> command;
    ServerControl::Answer answer;
    std::optional<std::string> typed;  // the answer to a question
    int columns = 80;
    int signals = 0;
    bool isServerOurs = true;
    // What was asked for.
    std::vector<std::string> measured, commands;
    std::vector<RemoteOptions> remotes;
    std::vector<bool> leavesAtOnce;
    int leavesAtSignal = 2;
    int endedServers = 0;
    int embedded = 0;
    int quick = 0;
    int asked = 0;
    std::vector<int> askedBeforeBegin;  // how often an answer had been read when a question began
    int stops = 0;

  private:
    struct Source : MeasurementSource {
        explicit Source(CommandRun& run) : owner(run) {}
        Measurement measure(const std::string& path, const Callbacks& callbacks) override {
            owner.measured.push_back(path);
            return owner.measure(path, callbacks);
        }
        CommandReply command(std::string_view member, const std::vector<BusValue>& arguments,
                             const std::function<bool()>& interrupted) override {
            owner.commands.emplace_back(member);
            if (owner.command) return owner.command(member, arguments, interrupted);
            CommandReply reply;
            reply.failure = "there is no server.";
            return reply;
        }
        bool endServer() override {
            if (owner.isServerOurs) ++owner.endedServers;
            return owner.isServerOurs;
        }
        CommandRun& owner;
    };
    struct Control : ServerControl {
        explicit Control(CommandRun& run) : owner(run) {}
        Answer version() override { return owner.answer; }
        Answer stop() override {
            ++owner.stops;
            return owner.answer;
        }
        CommandRun& owner;
    };

    WrittenBytes _output, _error;
};

}  // namespace kavaro
