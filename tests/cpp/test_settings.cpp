// The settings file and its sections, the server endpoint, the web addresses,
// and the name rules.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "test_support.hpp"
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
    R"({"version":4,"check":{"directories":[],"mode":0,"list":{},"presets":[]},"export":{"mode":0,"directory":"~"},"workspace":{"project":"","check_updates":false},)"
    R"("server":{"enabled":false,"host":"localhost","port":8080,"erase_sent":false}})";
}  // namespace

TEST(SettingsStore, RoundTripDropsUnknownKeysAndDefaultsDamagedOnes) {
    ScratchDirectory dir;
    const auto path = dir / "settings.json";
    {
        Settings s(path, "maya", "x");
        EXPECT_EQ(s.data().dump(), defaults);
        s.workspace().project = "Проект_0a1b2c3d.json";
        s.export_().mode = constants::export_::Local;
        s.server().set_port(9000);
        s.write();
    }
    EXPECT_NE(ScratchDirectory::get(path).find("\"Проект_0a1b2c3d.json\""), std::string::npos);
    auto data = file::Json::read(path);
    data["extra"] = 1;
    data["workspace"]["check_updates"] = "yes";
    data["server"]["host"] = nullptr;
    data["check"] = Document::array();
    file::Json::write(path, data);
    Settings again(path, "maya", "x");
    EXPECT_EQ(again.data()["workspace"], Document::parse(R"({"project": "Проект_0a1b2c3d.json", "check_updates": false})"));
    EXPECT_EQ(again.export_().mode, constants::export_::Local);
    EXPECT_EQ(again.server().host(), "localhost");
    EXPECT_EQ(again.server().port(), 9000);
    EXPECT_EQ(again.data()["check"], Document::parse(R"({"directories":[],"mode":0,"list":{},"presets":[]})"));
    again.write();
    EXPECT_FALSE(file::Json::read(path).contains("extra"));
}

TEST(SettingsStore, UnusableFilesGiveDefaultsAndOnlyBrokenOnesMove) {
    ScratchDirectory dir;
    const auto path = dir / "settings.json";
    LogCapture log;
    const std::string older = R"({"version": 3, "workspace": {"project": "old.json"}})";
    ScratchDirectory::put(path, older);
    EXPECT_EQ(Settings(path, "", "").data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Settings Version - 3"));
    EXPECT_EQ(ScratchDirectory::get(path), older);  // ignored, not moved

    ScratchDirectory::put(path, R"([{"version": 4}])");  // JSON, but no settings: quarantined
    EXPECT_EQ(Settings(path, "", "").data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Settings: " + path));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()), 1);

    ScratchDirectory::put(path, R"({"version": 4, "workspace": )");
    Settings broken(path, "", "");
    EXPECT_EQ(broken.data().dump(), defaults);
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Settings: " + path));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()), 2);
    broken.write();
    EXPECT_EQ(file::Json::read(path).dump(), defaults);

    Settings lost(dir / "none/settings.json", "", "");
    EXPECT_NO_THROW(lost.write());
    EXPECT_TRUE(log.has(LogLevel::Error, "FileNotFoundError: "));
}

TEST(SettingsServerAndUrls, EndpointIsPublishedAndAddressesFollowTheHost) {
    settings::Server server(Document::parse(R"({"host": "stats.local", "port": 8443})"));
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "stats.local:8443");
    server.set_host("10.0.0.5");
    server.set_port(81);
    EXPECT_STREQ(std::getenv("ZERKO-SERVER"), "10.0.0.5:81");
    EXPECT_EQ(server.data().dump(), R"({"enabled":false,"host":"10.0.0.5","port":81,"erase_sent":false})");

    const URLs urls("maya", "Linux6.1.0-18-amd64");
    EXPECT_EQ(urls.latest(), "https://" + std::string(URLs::default_host) + "/validator/downloads/maya/Linux6.1/latest/");
    EXPECT_EQ(urls.documentation_editor(), urls.home() + "/validator/#project-editor");
    EXPECT_EQ(urls.feedback(), urls.home() + "/feedback");
    EXPECT_EQ(URLs::Path::format_scope("Windows10"), "Windows10");
}

TEST(SettingsNames, FiltersDecideApproval) {
    using namespace constants::name::filter;
    EXPECT_TRUE(Settings::is_approved("Ящик", EN_RU) && !Settings::is_approved("Ящик", LATIN));
    EXPECT_FALSE(Settings::is_approved(" lead", SPACE) || Settings::is_approved("boxghost", GHOST));
    EXPECT_FALSE(Settings::is_approved("", EMPTY) || Settings::is_approved("x", "UNKNOWN"));
    EXPECT_EQ(Settings::approved_name("a\tb"), "ab");  // the Latin filter by default
    EXPECT_EQ(Settings::approved_name("x", true, "UNKNOWN"), std::nullopt);
}
