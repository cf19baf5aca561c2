// The settings file, its sections, the server endpoint, the web addresses,
// the name rules, and the stores as the Api builds them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "log_capture.hpp"
#include "scratch_directory.hpp"
#include "zerko/api/api.hpp"
#include "zerko/file/json.hpp"
#include "zerko/settings/settings.hpp"

using namespace zerko;
using foundation::LogLevel;
using settings::Document;
using settings::Settings;
using settings::URLs;
using test_support::LogCapture;
using test_support::ScratchDirectory;
namespace fs = std::filesystem;

namespace {

const char* const defaults =
    R"({"version":4,"check":{},"export":{"mode":0,"directory":"~"},"workspace":{"project":"","check_updates":false},)"
    R"("server":{"enabled":false,"host":"localhost","port":8080,"erase_sent":false}})";

Settings open(const ScratchDirectory& dir) { return Settings(dir / "settings.json", "maya", "Linux6.1.0-18-amd64"); }

std::size_t quarantined(const ScratchDirectory& dir) {
    if (!fs::exists(dir / ".corrupted")) return 0;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()));
}

}  // namespace

TEST(SettingsStore, RoundTripKeepsKnownKeysInOrder) {
    ScratchDirectory dir;
    {
        Settings s = open(dir);
        EXPECT_EQ(s.data().dump(), defaults);
        s.workspace().project = "Проект_0a1b2c3d.json";
        s.workspace().check_updates = true;
        s.export_().mode = constants::export_::Local;
        s.export_().directory = "~/exports";
        s.server().enabled = true;
        s.server().set_port(9000);
        s.write();
    }
    auto text = ScratchDirectory::get(dir / "settings.json");
    EXPECT_EQ(text.substr(0, 18), "{\n  \"version\": 4,\n");
    EXPECT_NE(text.find("\"Проект_0a1b2c3d.json\""), std::string::npos);  // not escaped

    // Unknown keys are dropped at the next write; absent keys take defaults.
    auto data = file::Json::read(dir / "settings.json");
    data["extra"] = 1;
    data["workspace"].erase("check_updates");
    file::Json::write(dir / "settings.json", data);
    Settings again = open(dir);
    EXPECT_EQ(again.workspace().project, "Проект_0a1b2c3d.json");
    EXPECT_FALSE(again.workspace().check_updates);
    EXPECT_EQ(again.export_().mode, constants::export_::Local);
    EXPECT_EQ(again.server().port(), 9000);
    again.write();
    EXPECT_FALSE(file::Json::read(dir / "settings.json").contains("extra"));
}

TEST(SettingsStore, DamagedValuesAndSectionsTakeDefaults) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "settings.json",
                          R"({"version": 4, "check": [1], "export": 5, "workspace": {"project": 7, "check_updates": "yes"},
                              "server": {"host": null, "port": "80", "enabled": 1, "erase_sent": true}})");
    Settings s = open(dir);
    const auto data = s.data();
    EXPECT_EQ(data["check"], Document::object());
    EXPECT_EQ(data["export"], Document::parse(R"({"mode": 0, "directory": "~"})"));
    EXPECT_EQ(data["workspace"], Document::parse(R"({"project": "", "check_updates": false})"));
    EXPECT_EQ(data["server"],
              Document::parse(R"({"enabled": false, "host": "localhost", "port": 8080, "erase_sent": true})"));
}

TEST(SettingsStore, OtherVersionsAndShapesAreIgnoredNotMoved) {
    ScratchDirectory dir;
    const auto path = dir / "settings.json";
    LogCapture log;
    const std::string older = R"({"version": 3, "workspace": {"project": "old.json"}})";
    ScratchDirectory::put(path, older);
    EXPECT_EQ(open(dir).data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Settings Version - 3"));
    EXPECT_EQ(ScratchDirectory::get(path), older);
    EXPECT_EQ(quarantined(dir), 0u);

    ScratchDirectory::put(path, R"({"workspace": {"project": "none.json"}})");  // no version reads as 0
    EXPECT_EQ(open(dir).workspace().project, "");

    ScratchDirectory::put(path, R"([{"version": 4}])");
    Settings listed = open(dir);
    EXPECT_EQ(listed.data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Settings File"));
    EXPECT_EQ(quarantined(dir), 0u);
    // The next write replaces whatever stood there.
    listed.write();
    EXPECT_EQ(file::Json::read(path).dump(), defaults);
}

TEST(SettingsStore, BrokenFileIsQuarantinedAndRewritten) {
    ScratchDirectory dir;
    const auto path = dir / "settings.json";
    ScratchDirectory::put(path, R"({"version": 4, "workspace": )");
    LogCapture log;
    Settings s = open(dir);
    EXPECT_EQ(s.data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Settings: " + path));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(quarantined(dir), 1u);
    s.write();
    EXPECT_EQ(file::Json::read(path).dump(), defaults);
}

TEST(SettingsStore, MissingDirectoryIsLoggedNeverRaised) {
    ScratchDirectory dir;
    LogCapture log;
    Settings s(dir / "none/settings.json", "maya", "x");
    EXPECT_EQ(s.data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Error, "FileNotFoundError: "));
    log.clear();
    EXPECT_NO_THROW(s.write());
    EXPECT_TRUE(log.has(LogLevel::Error, "FileNotFoundError: "));
}

TEST(SettingsServer, PublishesItsEndpoint) {
    settings::Server server(Document::parse(R"({"host": "stats.local", "port": 8443})"));
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "stats.local:8443");
    server.set_host("10.0.0.5");
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "10.0.0.5:8443");
    server.set_port(81);
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "10.0.0.5:81");
    EXPECT_EQ(server.data().dump(), R"({"enabled":false,"host":"10.0.0.5","port":81,"erase_sent":false})");
    settings::Server defaults_only;
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "localhost:8080");
}

TEST(SettingsUrls, AddressesOfTargetAndScope) {
    const URLs urls("maya", "Linux6.1.0-18-amd64");
    EXPECT_EQ(urls.port(), 443);
    EXPECT_EQ(urls.home(), "https://" + std::string(URLs::default_host));
    EXPECT_EQ(urls.path().latest(), "/validator/downloads/maya/Linux6.1/latest/");
    EXPECT_EQ(urls.latest(), urls.home() + "/validator/downloads/maya/Linux6.1/latest/");
    EXPECT_EQ(urls.documentation(), urls.home() + "/validator");
    EXPECT_EQ(urls.feedback(), urls.home() + "/feedback");
    EXPECT_EQ(urls.documentation_editor(), urls.home() + "/validator/#project-editor");
    EXPECT_EQ(URLs::Path::format_scope("Windows10"), "Windows10");
    EXPECT_EQ(URLs::Path::format_scope("2025.1"), "2025.1");
    EXPECT_EQ(URLs::Path::format_scope(""), "");
}

TEST(SettingsNames, FiltersDecideApproval) {
    using namespace constants::name::filter;
    EXPECT_FALSE(Settings::is_approved("Cube_Ящик", LATIN));
    EXPECT_TRUE(Settings::is_approved("Cube_01", LATIN));
    EXPECT_TRUE(Settings::is_approved("Ящик", EN_RU));
    EXPECT_FALSE(Settings::is_approved(" lead", SPACE));
    EXPECT_FALSE(Settings::is_approved("boxghost", GHOST));
    EXPECT_TRUE(Settings::is_approved("x", EMPTY));
    EXPECT_FALSE(Settings::is_approved("", EMPTY));
    EXPECT_FALSE(Settings::is_approved("anything", "UNKNOWN"));
    EXPECT_EQ(Settings::approved_name("a\tb"), "ab");  // the default filter is the Latin one
    EXPECT_EQ(Settings::approved_name(" x ", false, SPACE), "x");
    EXPECT_EQ(Settings::approved_name("x", true, "UNKNOWN"), std::nullopt);
    EXPECT_EQ(Settings::approved_name("x", false, "UNKNOWN"), "x");
}

namespace {
class FileEnv : public api::Environment {
public:
    explicit FileEnv(std::string dir) : dir_(std::move(dir)) {}
    std::string target() const override { return "blender"; }
    std::string scope() const override { return "Linux6.1"; }
    std::string get_settings_file() const override { return dir_ + "/settings.json"; }
    std::string get_settings_directory() const override { return dir_; }
    std::string get_projects_directory() const override { return dir_; }
    std::string get_statistics_file() const override { return dir_ + "/statistics.json"; }

private:
    std::string dir_;
};
}  // namespace

TEST(ApiStores, SettingsAndStatisticsComeFromTheEnvironment) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "settings.json", R"({"version": 4, "workspace": {"project": "p.json"}})");
    ScratchDirectory::put(dir / "statistics.json", R"({"exported": [{"timestamp": 1.5}], "version": 1})");
    api::Api api(std::make_shared<scene::Operator>(), std::make_shared<FileEnv>(dir.path()));
    EXPECT_EQ(api.settings().workspace().project, "p.json");
    EXPECT_EQ(api.settings().urls().path().latest(), "/validator/downloads/blender/Linux6.1/latest/");
    EXPECT_EQ(api.statistics().data()["exported"].size(), 1u);
    EXPECT_EQ(api.statistics().path(), dir / "statistics.json");
    // Reading left nothing behind.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 2);
}
