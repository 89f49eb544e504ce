// Child processes over NSTask.

#include "core/native/macos/MacPlatform.h"

#import <Foundation/Foundation.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/native/macos/MacStrings.h"

namespace velmora::native {

namespace {

// A started NSTask.
class MacChildProcess final : public ChildProcess {
  public:
    explicit MacChildProcess(NSTask* task) : task_(task) {}

    NSTask* task() const { return task_; }

  private:
    NSTask* task_;
};

}  // namespace

std::shared_ptr<ChildProcess> MacPlatform::startProcess(const std::string& executable,
                                                        const std::vector<std::string>& arguments) {
    @autoreleasepool {
        NSString* path = toNSString(executable);
        if (path == nil || executable.empty()) {
            return nullptr;
        }
        std::vector<NSString*> texts;
        texts.reserve(arguments.size());
        for (const std::string& argument : arguments) {
            NSString* text = toNSString(argument);
            if (text == nil) {
                return nullptr;
            }
            texts.push_back(text);
        }
        // NSTask init, setExecutableURL:, setArguments:. The standard streams are
        // left alone, so the child inherits the agent's own.
        NSTask* task = [[NSTask alloc] init];
        task.executableURL = [NSURL fileURLWithPath:path];
        task.arguments = [NSArray arrayWithObjects:texts.data() count:texts.size()];
        // NSTask launchAndReturnError:
        NSError* error = nil;
        if (![task launchAndReturnError:&error]) {
            return nullptr;
        }
        return std::make_shared<MacChildProcess>(task);
    }
}

void MacPlatform::waitUntilExit(ChildProcess& process) {
    auto* child = dynamic_cast<MacChildProcess*>(&process);
    if (child == nullptr) {
        return;
    }
    @autoreleasepool {
        // NSTask waitUntilExit
        [child->task() waitUntilExit];
    }
}

}  // namespace velmora::native
