// JSON files, the access queue between processes, and the file utilities.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <set>

#include "test_support.hpp"
#include "zerko/file/access_queue.hpp"
#include "zerko/file/json.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/errors.hpp"

using namespace zerko;
using file::Document;
using file::Json;
using test_support::ScratchDirectory;
namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

double seconds_since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void age(const std::string& path, double seconds) {
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::duration_cast<fs::file_time_type::duration>(
                                                                      std::chrono::duration<double>(seconds)));
}

std::set<std::string> listing(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename().string());
    return names;
}

}  // namespace

TEST(JsonFile, WritesIndentedTextAndReadsFailuresByKind) {
    ScratchDirectory dir;
    Document doc;
    doc["zeta"] = 1;
    doc["alpha"] = {{"имя", "Пётр"}, {"list", {2.5, nullptr}}};
    doc["empty"] = Document::object();
    Json::write(dir / "a.json", doc);
    EXPECT_EQ(ScratchDirectory::get(dir / "a.json"),
              "{\n  \"zeta\": 1,\n  \"alpha\": {\n    \"имя\": \"Пётр\",\n    \"list\": [\n      2.5,\n      null\n"
              "    ]\n  },\n  \"empty\": {}\n}");
    EXPECT_EQ(Json::read(dir / "a.json").begin().key(), "zeta");

    EXPECT_THROW(Json::read(dir / "missing.json"), FileNotFoundError);
    ScratchDirectory::put(dir / "broken.json", "{\"ключ\": tru");
    try {
        Json::read(dir / "broken.json");
        FAIL() << "no error";
    } catch (const file::JsonDecodeError& e) {
        EXPECT_EQ(e.position(), 12u);  // characters, not the 16 bytes
    }
    ScratchDirectory::put(dir / "bom.json", "\xEF\xBB\xBF{}");
    EXPECT_THROW(Json::read(dir / "bom.json"), file::JsonDecodeError);
}

TEST(FileUtilities, TimedNamesTextModeAndQuarantine) {
    EXPECT_EQ(file::split_extension("archive.tar.gz"), std::make_pair(std::string("archive.tar"), std::string(".gz")));
    EXPECT_EQ(file::split_extension(".bashrc"), std::make_pair(std::string(".bashrc"), std::string()));
    EXPECT_EQ(file::split_extension("a.b/c"), std::make_pair(std::string("a.b/c"), std::string()));
    const auto name = file::timed_filename("project.json");
    const auto now = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    EXPECT_NEAR(std::stoll(name.substr(8, name.size() - 13)), now.count(), 2);
    EXPECT_EQ(name.substr(0, 8) + name.substr(name.size() - 5), "project-.json");

    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.txt", "one\r\ntwo\rthree\n");
    EXPECT_EQ(file::Text::read(dir / "t.txt"), "one\ntwo\nthree\n");

    ScratchDirectory::put(dir / "settings.json", "{broken");
    file::move_corrupted(dir / "settings.json");
    const auto moved = listing(dir / ".corrupted");
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved.begin()->rfind("settings-", 0), 0u);
    EXPECT_EQ(ScratchDirectory::get(dir / ".corrupted/" + *moved.begin()), "{broken");
    EXPECT_NO_THROW(file::move_corrupted(dir / "missing.json"));  // only logged
    EXPECT_NO_THROW(file::move_corrupted(dir / "no/such/place.json"));
}

TEST(AccessQueue, ConstructionComputesNamesAndTouchesNothing) {
    ScratchDirectory dir;
    Json::AccessQueue queue(dir.path() + "/./sub/..//target.json");
    EXPECT_EQ(queue.path(), dir / "target.json");
    EXPECT_EQ(queue.directory(), dir.path());
    EXPECT_EQ(queue.path_lock(), dir / "target.json.lock");
    EXPECT_EQ(queue.path_id(), dir / ("target.json.id." + queue.ticket()));
    EXPECT_DOUBLE_EQ(queue.life_duration_threshold(), 35.0);
    EXPECT_DOUBLE_EQ(Json::AccessQueue(dir / "t.json", false, 60.0).life_duration_threshold(), 60.0);
    EXPECT_TRUE(listing(dir.path()).empty());
    std::set<std::string> tickets;  // decimal draws below 10^9, no padding
    for (int i = 0; i < 200; ++i) {
        const auto t = file::draw_ticket();
        ASSERT_TRUE(t.size() <= 9 && (t == "0" || t[0] != '0') && t.find_first_not_of("0123456789") == t.npos) << t;
        tickets.insert(t);
    }
    EXPECT_GT(tickets.size(), 195u);
}

TEST(AccessQueue, ScopeReadsWritesAndAlwaysGivesItsPlaceUp) {
    ScratchDirectory dir;
    const auto path = dir / "t.json";
    Json::AccessQueue reader(path);
    EXPECT_EQ(reader.enter(), Document::object());  // no file yet
    EXPECT_TRUE(fs::exists(reader.path_lock()) && fs::exists(reader.path_id()));
    reader.leave();
    EXPECT_TRUE(listing(dir.path()).empty());

    // An error in the body still writes the document, then propagates.
    Json::AccessQueue writer(path, true);
    EXPECT_THROW(writer.run([](Document& d) {
        d["partial"] = true;
        throw ValueError("body failed");
    }),
                 ValueError);
    EXPECT_EQ(Json::read(path)["partial"], true);
    {
        Json::AccessQueue forgotten(path, true);
        forgotten.enter()["lost"] = true;
    }  // destroyed while holding: released, nothing written
    EXPECT_FALSE(Json::read(path).contains("lost"));

    ScratchDirectory::put(path, "[1,");
    EXPECT_THROW(Json::AccessQueue(path).enter(), file::JsonDecodeError);
    fs::create_directory(dir / "folder.json");
    EXPECT_THROW(Json::AccessQueue(dir / "folder.json", true).run([](Document&) {}), FileNotFoundError);
    try {
        Json::AccessQueue(dir / "none/t.json").enter();
        FAIL();
    } catch (const FileNotFoundError& e) {
        EXPECT_EQ(e.path(), dir / "none");
    }
    EXPECT_EQ(listing(dir.path()), (std::set<std::string>{"t.json", "folder.json"}));
}

TEST(AccessQueue, TicketNamesArePlainPrefixesAndDeadOnesAreSwept) {
    ScratchDirectory dir;
    for (const char* name : {"target.json.id.12", "target.json.id.x", "targetxjson.id.12", "other.target.json.id.12",
                             "target.json.id.34.bak", "target.json.id.99"}) {
        ScratchDirectory::put(dir / name, "");
    }
    age(dir / "target.json.id.99", 100.0);
    auto sequence = Json::AccessQueue(dir / "target.json").get_editors_sequence();
    std::sort(sequence.begin(), sequence.end());
    EXPECT_EQ(sequence, (std::vector<std::string>{dir / "target.json.id.12", dir / "target.json.id.34.bak"}));
    EXPECT_FALSE(fs::exists(dir / "target.json.id.99"));
}

TEST(AccessQueue, DeadLockAndTicketAreSweptWithoutAGateStep) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.json.lock", "");
    ScratchDirectory::put(dir / "t.json.id.5", "");
    age(dir / "t.json.lock", 36.0);
    age(dir / "t.json.id.5", 36.0);
    const auto start = Clock::now();
    Json::AccessQueue(dir / "t.json", true).run([](Document& d) { d["in"] = 1; });
    EXPECT_LT(seconds_since(start), 0.45);  // the settling sleep only
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"t.json"});
}

TEST(AccessQueue, ClosedGateTimesOutAfterTwoStepsAndRemovesTheLock) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.json.lock", "");
    const auto start = Clock::now();
    EXPECT_THROW(Json::AccessQueue(dir / "t.json", false, 1.0).enter(), error::AccessQueueTimeout);
    const double waited = seconds_since(start);
    EXPECT_TRUE(waited >= 1.0 && waited < 1.4) << waited;
    EXPECT_TRUE(listing(dir.path()).empty());  // no ticket stood by: the lock went too

    // A nested guard waits out its time behind the outer one and leaves its markers alone.
    Json::AccessQueue outer(dir / "t.json", true);
    outer.enter();
    EXPECT_THROW(Json::AccessQueue(dir / "t.json", false, 0.5).enter(), error::AccessQueueTimeout);
    EXPECT_TRUE(fs::exists(outer.path_lock()) && fs::exists(outer.path_id()));
    outer.leave();
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"t.json"});
}

TEST(AccessQueue, NotFirstInLineTimesOutAndRemovesItsTicket) {
    ScratchDirectory dir;
    // Listing order decides who is first: try guards until one stands behind a foreign ticket.
    for (int i = 1; i <= 5; ++i) ScratchDirectory::put(dir / ("t.json.id." + std::to_string(i)), "");
    for (int attempt = 0; attempt < 20; ++attempt) {
        Json::AccessQueue queue(dir / "t.json", false, 0.3);
        const auto start = Clock::now();
        if (queue.is_next()) {
            fs::remove(queue.path_id());
            continue;
        }
        EXPECT_GE(seconds_since(start), 0.4);  // settling sleep and three steps
        queue.release_access();
        EXPECT_FALSE(fs::exists(queue.path_id()));
        EXPECT_TRUE(fs::exists(queue.path_lock()));  // others still hold tickets
        return;
    }
    FAIL() << "every guard came first";
}

// Forked processes draw tickets of their own and lose no update.
TEST(AccessQueue, ForkedWritersLoseNoUpdate) {
    ScratchDirectory dir;
    const auto path = dir / "shared.json";
    constexpr int processes = 4, rounds = 15;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        const pid_t pid = ::fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            int code = 0;
            try {
                for (int r = 0; r < rounds; ++r) {
                    Json::AccessQueue(path, true).run([](Document& d) { d["count"] = d.value("count", 0) + 1; });
                }
            } catch (...) {
                code = 1;
            }
            ::_exit(code);
        }
        children.push_back(pid);
    }
    for (const pid_t pid : children) {
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(Json::read(path)["count"], processes * rounds);
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"shared.json"});
}

TEST(JsonDocument, KeepsInsertionOrderAndFindsKeysPastTheIndexThreshold) {
    // Enough keys for the hash index, with erasures and a copy in between, so
    // that a stale index would answer wrong positions.
    Document object = Document::object();
    for (int i = 0; i < 100; ++i) object["k" + std::to_string(99 - i)] = i;
    EXPECT_EQ(object.begin().key(), "k99");
    object.erase("k50");
    object.erase("k99");
    Document copy = object;
    copy["k50"] = "back";
    object["new"] = true;
    for (int i = 0; i < 100; ++i) {
        const std::string key = "k" + std::to_string(i);
        if (i == 50 || i == 99) {
            EXPECT_FALSE(object.contains(key)) << key;
        } else {
            EXPECT_EQ(object.at(key), 99 - i) << key;
            EXPECT_EQ(copy.at(key), 99 - i) << key;
        }
    }
    EXPECT_EQ(copy.at("k50"), "back");
    EXPECT_EQ((--copy.end()).key(), "k50");
    EXPECT_EQ(object.begin().key(), "k98");
    EXPECT_EQ((--object.end()).key(), "new");
    EXPECT_EQ(object.size(), 99u);
    // Equality follows the order of the keys, as the written text does.
    EXPECT_NE(Document::parse(R"({"a": 1, "b": 2})"), Document::parse(R"({"b": 2, "a": 1})"));
    EXPECT_EQ(Json::dumps(Document::parse(R"({"b": 1, "a": {"d": [], "c": null}})")),
              "{\n  \"b\": 1,\n  \"a\": {\n    \"d\": [],\n    \"c\": null\n  }\n}");
}

TEST(JsonFile, TextNestedBeyondTheLimitIsRefusedWhereItGoesTooDeep) {
    const auto nested = [](std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); };
    EXPECT_NO_THROW(Json::parse(nested(json_depth_limit)));
    try {
        Json::parse("{\"a\": \"[[[[\", \"b\": " + nested(30000) + "}");
        FAIL() << "parsed";
    } catch (const file::JsonDecodeError& e) {
        EXPECT_EQ(e.position(), 18u + json_depth_limit);  // brackets inside the string do not count
    }
}

TEST(FileUtilities, OnlyPlainFileNamesAndPathsWithoutNulPass) {
    for (const std::string_view name : {"a.json", "Сцена_0a1b2c3d.json", "..a", "a..json", "c++ (1).json"}) {
        EXPECT_TRUE(file::is_plain_filename(name)) << name;
    }
    using namespace std::string_view_literals;
    for (const std::string_view name : {""sv, "."sv, ".."sv, "../a.json"sv, "a/b.json"sv, "/abs.json"sv, "a\\b.json"sv,
                                        "C:a.json"sv, "good.json\0"sv, "a\0.json"sv}) {
        EXPECT_FALSE(file::is_plain_filename(name)) << name;
        EXPECT_THROW(file::assert_plain_filename(name), ValueError);
    }
    EXPECT_NO_THROW(file::assert_path("/tmp/a b/c.json"));
    EXPECT_THROW(file::assert_path("a.json\0.bak"sv), ValueError);
    EXPECT_THROW(Json::AccessQueue("a.json\0.bak"sv), ValueError);
}
