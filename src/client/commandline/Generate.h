#pragma once

#include <string>

#include "client/commandline/CommandLine.h"

namespace kavaro {

// Texts made from the description of the options.
std::string generateManPage(const CommandLine& commandLine);
std::string generateBashCompletion(const CommandLine& commandLine);
std::string generateZshCompletion(const CommandLine& commandLine);
std::string generateFishCompletion(const CommandLine& commandLine);

// By the name of the format: "man", "bash", "zsh" or "fish".
std::string generate(const CommandLine& commandLine, const std::string& format);

}  // namespace kavaro
