// The installed application entries as the agent reads them, without GIO, must be
// those GIO's application list gives: on the machine's own entries, and on
// directories built to hold one entry for every rule of the list. The second
// runs the first in a child process whose XDG directories are the built ones,
// since GLib reads them once per process.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <gtest/gtest.h>

#include "core/native/linux/desktop/ApplicationIdentity.h"
#include "core/native/linux/desktop/DesktopEntryScan.h"
#include "tests/support/Subprocess.h"

namespace velmora::native::freedesktop {
namespace {

namespace fs = std::filesystem;

using Fields = std::tuple<std::string, std::string, std::string, std::string, bool>;

Fields fieldsOf(const DesktopEntry& entry) {
    return {entry.id, entry.fileName, entry.startupWMClass, entry.program, entry.shown};
}

std::vector<Fields> sorted(const std::vector<DesktopEntry>& entries) {
    std::vector<Fields> fields;
    for (const auto& entry : entries) {
        fields.push_back(fieldsOf(entry));
    }
    std::sort(fields.begin(), fields.end());
    return fields;
}

std::string textOr(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

// GIO's application list in the same fields.
std::vector<DesktopEntry> entriesFromGio() {
    std::vector<DesktopEntry> entries;
    GList* all = g_app_info_get_all();
    for (GList* item = all; item != nullptr; item = item->next) {
        auto* info = static_cast<GAppInfo*>(item->data);
        if (!G_IS_DESKTOP_APP_INFO(info)) {
            continue;
        }
        DesktopEntry entry;
        entry.id = textOr(g_app_info_get_id(info));
        entry.id.resize(entry.id.size() - std::string(".desktop").size());
        entry.fileName = textOr(g_desktop_app_info_get_filename(G_DESKTOP_APP_INFO(info)));
        entry.startupWMClass =
            textOr(g_desktop_app_info_get_startup_wm_class(G_DESKTOP_APP_INFO(info)));
        entry.program = baseName(textOr(g_app_info_get_executable(info)));
        entry.shown = g_app_info_should_show(info) != FALSE;
        entries.push_back(std::move(entry));
    }
    g_list_free_full(all, g_object_unref);
    return entries;
}

TEST(DesktopEntryScan, AgreesWithGioOnTheSessionsEntries) {
    EXPECT_EQ(sorted(scanDesktopEntries(sessionDesktopEntrySearch())), sorted(entriesFromGio()));
}

class BuiltEntries : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/velmora-entries-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        root_ = pattern;
        for (const char* program : {"prog-a", "prog-b", "prog-c"}) {
            write("bin/" + std::string(program), "#!/bin/sh\n");
            fs::permissions(root_ / "bin" / program, fs::perms::owner_all);
        }
        const std::string head = "[Desktop Entry]\nType=Application\nName=N\n";
        // The user's directory comes first: its ids hide the system's.
        write("home/applications/a.desktop", head + "Exec=prog-a %U\nStartupWMClass=AClass\n");
        write("home/applications/hidden.desktop", head + "Exec=prog-a\nHidden=true\n");
        write("home/applications/sub/inner.desktop", head + "Exec=prog-b\n");
        write("sys1/applications/a.desktop", head + "Exec=prog-b\n");
        write("sys1/applications/hidden.desktop", head + "Exec=prog-b\n");
        write("sys1/applications/link.desktop",
              "[Desktop Entry]\nType=Link\nName=L\nURL=file:///\n");
        write("sys1/applications/notry.desktop", head + "Exec=prog-c\nTryExec=no-such-program\n");
        write("sys2/applications/notry.desktop", head + "Exec=prog-c\n");
        write("sys1/applications/noexec.desktop", head + "Exec=no-such-program --flag\n");
        write("sys1/applications/badexec.desktop", head + "Exec=prog-a \"unclosed\n");
        write("sys1/applications/noexecline.desktop", head);
        write("sys1/applications/nodisplay.desktop", head + "Exec=prog-c\nNoDisplay=true\n");
        write("sys1/applications/onlykde.desktop", head + "Exec=prog-c\nOnlyShowIn=KDE;\n");
        write("sys1/applications/onlyxfce.desktop", head + "Exec=prog-c\nOnlyShowIn=KDE;XFCE;\n");
        write("sys1/applications/notxfce.desktop", head + "Exec=prog-c\nNotShowIn=XFCE;\n");
        write("sys1/applications/othergroup.desktop",
              "[Other]\nA=b\n[Desktop Entry]\nType=Application\nName=N\nExec=prog-c\n");
        write("sys1/applications/broken.desktop", "this is no key file\n");
        write("sys1/applications/readme.txt", head + "Exec=prog-c\n");
        write("sys2/applications/path.desktop",
              head + "Exec=" + (root_ / "bin/prog-b").string() + " --x\nTryExec=prog-b\n");
    }
    void TearDown() override { fs::remove_all(root_); }

    void write(const std::string& relative, const std::string& text) {
        fs::create_directories((root_ / relative).parent_path());
        std::ofstream(root_ / relative) << text;
    }
    std::string at(const std::string& relative) const { return (root_ / relative).string(); }
    // PATH with the entries' programs first.
    std::string pathWithPrograms() const {
        const char* path = std::getenv("PATH");
        return at("bin") + ":" + (path != nullptr ? path : "");
    }

    fs::path root_;
};

TEST_F(BuiltEntries, EveryRuleOfTheList) {
    // The entries' programs are found on PATH, as the agent's own process finds them.
    const std::string path = std::getenv("PATH") != nullptr ? std::getenv("PATH") : "";
    setenv("PATH", pathWithPrograms().c_str(), 1);
    const auto entries = scanDesktopEntries(DesktopEntrySearch{
        .directories = {at("home/applications"), at("sys1/applications"), at("sys2/applications")},
        .currentDesktops = {"XFCE"}});
    setenv("PATH", path.c_str(), 1);

    const std::vector<Fields> expected = {
        {"a", at("home/applications/a.desktop"), "AClass", "prog-a", true},
        {"nodisplay", at("sys1/applications/nodisplay.desktop"), "", "prog-c", false},
        {"noexecline", at("sys1/applications/noexecline.desktop"), "", "", true},
        {"notxfce", at("sys1/applications/notxfce.desktop"), "", "prog-c", false},
        {"onlykde", at("sys1/applications/onlykde.desktop"), "", "prog-c", false},
        {"onlyxfce", at("sys1/applications/onlyxfce.desktop"), "", "prog-c", true},
        {"path", at("sys2/applications/path.desktop"), "", "prog-b", true},
        {"sub-inner", at("home/applications/sub/inner.desktop"), "", "prog-b", true},
    };
    EXPECT_EQ(sorted(entries), expected);
}

TEST_F(BuiltEntries, GioListsTheSame) {
    const auto run = velmora::testing::runProcess(
        "/proc/self/exe", {"--gtest_filter=DesktopEntryScan.AgreesWithGioOnTheSessionsEntries"}, "",
        {{"XDG_DATA_HOME", at("home")},
         {"XDG_DATA_DIRS", at("sys1") + "/:" + at("sys2")},
         {"XDG_CURRENT_DESKTOP", "XFCE"},
         {"PATH", pathWithPrograms()}});
    EXPECT_EQ(run.exitStatus, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("[  PASSED  ] 1 test"), std::string::npos) << run.out;
}

}  // namespace
}  // namespace velmora::native::freedesktop
