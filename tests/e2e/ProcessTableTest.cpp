// What the process table reads of a running process: its executable, the launch
// variables and DISPLAY of its environment, and its argv[0]. Read from child
// processes this test starts with environments it chooses.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/native/linux/desktop/ProcessTable.h"

namespace velmora::native::freedesktop {
namespace {

// A shell that says it is ready and then waits on its standard input until the
// test ends it. It is read only once it has said so: until an exec is complete
// /proc shows the new executable with no arguments and no environment yet.
class Child {
  public:
    Child(const std::string& commandName, const std::vector<std::string>& environment,
          const std::string& extraArgument = "") {
        int input[2];
        int output[2];
        if (pipe(input) != 0) {
            return;
        }
        if (pipe(output) != 0) {
            close(input[0]);
            close(input[1]);
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, input[1]);
        posix_spawn_file_actions_addclose(&actions, output[0]);
        std::vector<std::string> arguments = {commandName, "-c", "echo ready; read line"};
        if (!extraArgument.empty()) {
            arguments.push_back(extraArgument);
        }
        std::vector<char*> argv;
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (const auto& variable : environment) {
            envp.push_back(const_cast<char*>(variable.c_str()));
        }
        envp.push_back(nullptr);
        if (posix_spawn(&processId_, "/bin/sh", &actions, nullptr, argv.data(), envp.data()) != 0) {
            processId_ = 0;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(input[0]);
        close(output[1]);
        input_ = input[1];
        std::string said;
        char byte = 0;
        while (processId_ > 0 && said != "ready\n" && read(output[0], &byte, 1) == 1) {
            said += byte;
        }
        close(output[0]);
        ready_ = said == "ready\n";
    }
    ~Child() {
        if (input_ >= 0) {
            close(input_);
        }
        if (processId_ > 0) {
            kill(processId_, SIGKILL);
            waitpid(processId_, nullptr, 0);
        }
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t processId() const { return ready_ ? processId_ : 0; }

  private:
    pid_t processId_ = 0;
    int input_ = -1;
    bool ready_ = false;
};

TEST(ProcessTable, ReadsTheLaunchVariablesDisplayAndCommandName) {
    Child child("velmora-named-sh",
                {"HOME=/nowhere", "GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/x.desktop",
                 "GIO_LAUNCHED_DESKTOP_FILE_PID=17", "DISPLAY=:42"});
    ASSERT_GT(child.processId(), 0);
    const auto executable = executableOf(child.processId());
    ASSERT_TRUE(executable.has_value());
    EXPECT_NE(executable->find("sh"), std::string::npos) << *executable;

    const ProcessFacts facts = processFacts(child.processId(), *executable, {});
    EXPECT_EQ(facts.processId, child.processId());
    EXPECT_EQ(facts.executablePath, *executable);
    EXPECT_EQ(facts.launchedDesktopFile, "/usr/share/applications/x.desktop");
    EXPECT_EQ(facts.launchedDesktopFilePid, 17);
    EXPECT_EQ(facts.display, ":42");
    EXPECT_EQ(facts.commandName, "velmora-named-sh");
}

TEST(ProcessTable, ReadsEnvironmentsLongerThanOneRead) {
    // The variables the identity needs come after 100 kB of others.
    std::vector<std::string> environment;
    for (int i = 0; i < 100; ++i) {
        environment.push_back("FILLER_" + std::to_string(i) + "=" + std::string(1000, 'x'));
    }
    environment.push_back("GIO_LAUNCHED_DESKTOP_FILE=/far/away.desktop");
    environment.push_back("DISPLAY=:7");
    Child child("/usr/bin/velmora-long-sh", environment, std::string(40000, 'a'));
    ASSERT_GT(child.processId(), 0);
    const ProcessFacts facts = processFacts(child.processId(), "/bin/sh", {});
    EXPECT_EQ(facts.launchedDesktopFile, "/far/away.desktop");
    EXPECT_EQ(facts.launchedDesktopFilePid, std::nullopt);
    EXPECT_EQ(facts.display, ":7");
    EXPECT_EQ(facts.commandName, "velmora-long-sh");
}

TEST(ProcessTable, AProcessWithoutEnvironmentHasNoLaunchFacts) {
    Child child("sh", {});
    ASSERT_GT(child.processId(), 0);
    const ProcessFacts facts = processFacts(child.processId(), "/bin/sh", {});
    EXPECT_EQ(facts.launchedDesktopFile, std::nullopt);
    EXPECT_EQ(facts.display, std::nullopt);
    EXPECT_EQ(facts.commandName, "sh");
}

TEST(ProcessTable, ListsTheChildAmongTheUsersProcesses) {
    Child child("sh", {});
    ASSERT_GT(child.processId(), 0);
    const auto processes = userProcesses();
    EXPECT_TRUE(std::is_sorted(
        processes.begin(), processes.end(),
        [](const UserProcess& a, const UserProcess& b) { return a.processId < b.processId; }));
    auto found = std::find_if(processes.begin(), processes.end(), [&](const UserProcess& process) {
        return process.processId == child.processId();
    });
    ASSERT_NE(found, processes.end());
    EXPECT_EQ(found->executablePath, executableOf(child.processId()));
}

}  // namespace
}  // namespace velmora::native::freedesktop
