#include "platform/Workspace.h"

#include <memory>

#include "platform/Text.h"
#include "platform/Trash.h"

namespace kavaro {

namespace {

class DesktopWorkspace final : public Workspace {
  public:
    bool recycle(const std::string& folder, const std::string& name, int* tag, std::string* reason) override {
        if (!_trash) _trash = std::make_unique<Trash>();
        Trash::Result result = _trash->move(stringByAppendingPathComponent(folder, name));
        if (result.ok()) {
            *tag = 0;
            return true;
        }
        *reason = std::move(result.reason);
        return false;
    }
    void noteFileSystemChanged() override { _trash = nullptr; }

  private:
    std::unique_ptr<Trash> _trash;  // while a run of operations lasts
};

}  // namespace

Workspace& Workspace::shared() {
    static Workspace& workspace = *new DesktopWorkspace;
    return workspace;
}

}  // namespace kavaro
