#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kavaro {

// Sets environment variables and puts the old values back, last set first, when it goes. For tests that have no other
// thread running.
class ScopedEnvironment {
  public:
    ScopedEnvironment() = default;
    ScopedEnvironment(const char* name, const std::string& value) { set(name, value); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;
    ~ScopedEnvironment() {
        for (auto saved = _saved.rbegin(); saved != _saved.rend(); ++saved) {
            if (saved->second) {
                setenv(saved->first.c_str(), saved->second->c_str(), 1);
            } else {
                unsetenv(saved->first.c_str());
            }
        }
    }

    void set(const char* name, const std::string& value) {
        save(name);
        setenv(name, value.c_str(), 1);
    }
    void unset(const char* name) {
        save(name);
        unsetenv(name);
    }

  private:
    void save(const char* name) {
        const char* value = std::getenv(name);
        _saved.emplace_back(name, value ? std::optional<std::string>(value) : std::nullopt);
    }

    std::vector<std::pair<std::string, std::optional<std::string>>> _saved;
};

}  // namespace kavaro
