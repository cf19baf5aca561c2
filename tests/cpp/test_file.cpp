// JSON files, the access queue between processes, and the file utilities.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <set>
#include <thread>

#include "scratch_directory.hpp"
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

double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void age(const std::string& path, double seconds) {
    fs::last_write_time(path, fs::file_time_type::clock::now() -
                                  std::chrono::duration_cast<fs::file_time_type::duration>(
                                      std::chrono::duration<double>(seconds)));
}

std::set<std::string> listing(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename().string());
    return names;
}

// One read-modify-write increment of "count", as every worker process does.
void increment(const std::string& path, double timeout = 30.0, double threshold = 35.0) {
    Json::AccessQueue queue(path, true, timeout, threshold);
    queue.run([](Document& d) { d["count"] = d.value("count", 0) + 1; });
}

}  // namespace

TEST(JsonFile, WritesIndentedTextThatReadsBackInOrder) {
    ScratchDirectory dir;
    Document doc;
    doc["zeta"] = 1;
    doc["alpha"] = {{"имя", "Пётр"}, {"list", {1, 2.5, nullptr, true}}};
    doc["empty"] = Document::object();
    Json::write(dir / "a.json", doc);
    EXPECT_EQ(ScratchDirectory::get(dir / "a.json"),
              "{\n  \"zeta\": 1,\n  \"alpha\": {\n    \"имя\": \"Пётр\",\n    \"list\": [\n      1,\n      2.5,\n"
              "      null,\n      true\n    ]\n  },\n  \"empty\": {}\n}");
    const Document back = Json::read(dir / "a.json");
    EXPECT_EQ(back, doc);
    EXPECT_EQ(back.begin().key(), "zeta");
}

TEST(JsonFile, ReadFailuresKeepTheirKinds) {
    ScratchDirectory dir;
    EXPECT_THROW(Json::read(dir / "missing.json"), FileNotFoundError);
    ScratchDirectory::put(dir / "broken.json", "{\"ключ\": tru");
    try {
        Json::read(dir / "broken.json");
        FAIL() << "no error";
    } catch (const file::JsonDecodeError& e) {
        // A ValueError for the faces, positioned in characters, not bytes.
        EXPECT_NE(dynamic_cast<const ValueError*>(&e), nullptr);
        EXPECT_EQ(e.position(), 12u);  // 16 bytes in
        EXPECT_NE(std::string(e.what()).find("line 1 column 13 (char 12)"), std::string::npos);
    }
    ScratchDirectory::put(dir / "bom.json", "\xEF\xBB\xBF{}");
    EXPECT_THROW(Json::read(dir / "bom.json"), file::JsonDecodeError);
    ScratchDirectory::put(dir / "empty.json", "");
    EXPECT_THROW(Json::read(dir / "empty.json"), file::JsonDecodeError);
    EXPECT_THROW(Json::write(dir / "no/such/dir.json", Document::object()), FileNotFoundError);
}

TEST(FileUtilities, TimedNamesAndTextMode) {
    const auto now = static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(
                                                std::chrono::system_clock::now().time_since_epoch())
                                                .count());
    const auto name = file::timed_filename("project.json");
    ASSERT_EQ(name.substr(0, 8), "project-");
    ASSERT_EQ(name.substr(name.size() - 5), ".json");
    EXPECT_NEAR(std::stoll(name.substr(8, name.size() - 13)), now, 2);
    EXPECT_EQ(file::split_extension("archive.tar.gz"), std::make_pair(std::string("archive.tar"), std::string(".gz")));
    EXPECT_EQ(file::split_extension("noext"), std::make_pair(std::string("noext"), std::string()));
    EXPECT_EQ(file::split_extension(".bashrc"), std::make_pair(std::string(".bashrc"), std::string()));
    EXPECT_EQ(file::split_extension("a.b/c"), std::make_pair(std::string("a.b/c"), std::string()));
    EXPECT_EQ(file::timed_filename("noext").rfind("noext-", 0), 0u);

    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.txt", "one\r\ntwo\rthree\n");
    EXPECT_EQ(file::Text::read(dir / "t.txt"), "one\ntwo\nthree\n");
    EXPECT_THROW(file::Text::read(dir / "none.txt"), FileNotFoundError);
}

TEST(FileUtilities, QuarantineMovesAsideAndNeverRaises) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "settings.json", "{broken");
    file::move_corrupted(dir / "settings.json");
    EXPECT_FALSE(fs::exists(dir / "settings.json"));
    const auto moved = listing(dir / ".corrupted");
    ASSERT_EQ(moved.size(), 1u);
    EXPECT_EQ(moved.begin()->rfind("settings-", 0), 0u);
    EXPECT_EQ(ScratchDirectory::get(dir / ".corrupted/" + *moved.begin()), "{broken");
    // Missing files and impossible places are only logged.
    EXPECT_NO_THROW(file::move_corrupted(dir / "missing.json"));
    EXPECT_NO_THROW(file::move_corrupted(dir / "no/such/place.json"));
}

TEST(AccessQueue, ConstructionComputesNamesAndTouchesNothing) {
    ScratchDirectory dir;
    Json::AccessQueue queue(dir.path() + "/./sub/..//target.json");
    EXPECT_EQ(queue.path(), dir / "target.json");
    EXPECT_EQ(queue.directory(), dir.path());
    EXPECT_EQ(queue.filename(), "target.json");
    EXPECT_EQ(queue.path_lock(), dir / "target.json.lock");
    EXPECT_EQ(queue.path_id(), dir / ("target.json.id." + queue.ticket()));
    EXPECT_FALSE(queue.write());
    EXPECT_DOUBLE_EQ(queue.access_timeout(), 30.0);
    EXPECT_DOUBLE_EQ(queue.life_duration_threshold(), 35.0);
    EXPECT_DOUBLE_EQ(Json::AccessQueue(dir / "t.json", false, 60.0).life_duration_threshold(), 60.0);
    EXPECT_TRUE(listing(dir.path()).empty());

    // Tickets are plain decimal draws below 10^9, without padding.
    std::set<std::string> tickets;
    for (int i = 0; i < 200; ++i) {
        const auto t = file::draw_ticket();
        ASSERT_FALSE(t.empty());
        ASSERT_LE(t.size(), 9u);
        ASSERT_TRUE(t == "0" || t[0] != '0') << t;
        ASSERT_EQ(t.find_first_not_of("0123456789"), std::string::npos) << t;
        tickets.insert(t);
    }
    EXPECT_GT(tickets.size(), 195u);
}

TEST(AccessQueue, NewFileIsEmptyAndWriteCreatesItLeavingNoMarker) {
    ScratchDirectory dir;
    const auto path = dir / "target.json";
    {
        Json::AccessQueue reader(path);
        EXPECT_EQ(reader.enter(), Document::object());
        EXPECT_TRUE(fs::exists(reader.path_lock()));
        EXPECT_TRUE(fs::exists(reader.path_id()));
        EXPECT_EQ(fs::file_size(reader.path_id()), 0u);
        reader.leave();
        EXPECT_FALSE(fs::exists(path));
    }
    Json::AccessQueue writer(path, true);
    writer.run([](Document& d) { d["ключ"] = "значение"; });
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"target.json"});
    EXPECT_EQ(Json::read(path)["ключ"], "значение");
}

TEST(AccessQueue, BodyErrorStillWritesThenPropagates) {
    ScratchDirectory dir;
    Json::AccessQueue queue(dir / "t.json", true);
    EXPECT_THROW(queue.run([](Document& d) {
        d["partial"] = true;
        throw ValueError("body failed");
    }),
                 ValueError);
    EXPECT_EQ(Json::read(dir / "t.json")["partial"], true);
    EXPECT_EQ(listing(dir.path()).size(), 1u);
}

TEST(AccessQueue, FailuresReleaseThePlace) {
    ScratchDirectory dir;
    // Invalid JSON reaches the caller after the release.
    ScratchDirectory::put(dir / "bad.json", "[1,");
    Json::AccessQueue bad(dir / "bad.json");
    EXPECT_THROW(bad.enter(), file::JsonDecodeError);
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"bad.json"});
    // A missing directory is a file-not-found error, and no marker appears anywhere.
    Json::AccessQueue lost(dir / "none/t.json");
    try {
        lost.enter();
        FAIL();
    } catch (const FileNotFoundError& e) {
        EXPECT_EQ(e.path(), dir / "none");
    }
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"bad.json"});
    // A write that cannot happen (the target is a directory) still releases.
    fs::create_directory(dir / "folder.json");
    Json::AccessQueue folder(dir / "folder.json", true);
    EXPECT_THROW(folder.run([](Document&) {}), FileNotFoundError);
    EXPECT_EQ(listing(dir.path()), (std::set<std::string>{"bad.json", "folder.json"}));
}

TEST(AccessQueue, TicketNamesFollowTheUnescapedPattern) {
    ScratchDirectory dir;
    for (const char* name : {"target.json.id.12", "target.json.id.x", "targetxjson.id.12", "other.target.json.id.12",
                             "target.json.id.34.bak", "target.json.lock"}) {
        ScratchDirectory::put(dir / name, "");
    }
    ScratchDirectory::put(dir / "target.json.id.99", "");
    age(dir / "target.json.id.99", 100.0);
    Json::AccessQueue queue(dir / "target.json");
    auto sequence = queue.get_editors_sequence();
    std::sort(sequence.begin(), sequence.end());
    // The anchored pattern needs only a prefix: "id.34.bak" counts as well.
    EXPECT_EQ(sequence, (std::vector<std::string>{dir / "target.json.id.12", dir / "target.json.id.34.bak",
                                                  dir / "targetxjson.id.12"}));
    // The sweep removed the dead ticket and nothing else.
    EXPECT_FALSE(fs::exists(dir / "target.json.id.99"));
    EXPECT_TRUE(fs::exists(dir / "target.json.id.x"));
}

TEST(AccessQueue, DeadMarkersAreSweptWithoutWaiting) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.json.lock", "");
    ScratchDirectory::put(dir / "t.json.id.5", "");
    age(dir / "t.json.lock", 36.0);
    age(dir / "t.json.id.5", 36.0);
    const auto start = Clock::now();
    Json::AccessQueue queue(dir / "t.json", true);
    queue.run([](Document& d) { d["in"] = 1; });
    EXPECT_LT(seconds_since(start), 0.45);  // the settling sleep only, no gate step
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"t.json"});
}

TEST(AccessQueue, ClosedGateTimesOutAfterItsStepsAndRemovesTheLock) {
    ScratchDirectory dir;
    ScratchDirectory::put(dir / "t.json.lock", "");
    Json::AccessQueue queue(dir / "t.json", false, 1.0);
    const auto start = Clock::now();
    try {
        queue.enter();
        FAIL() << "entered";
    } catch (const error::AccessQueueTimeout& e) {
        EXPECT_STREQ(e.what(), "Await Time for File Access is Out");
    }
    const double waited = seconds_since(start);
    EXPECT_GE(waited, 1.0);
    EXPECT_LT(waited, 1.4);
    // No ticket stood beside the target, so this guard removed the lock it waited for.
    EXPECT_TRUE(listing(dir.path()).empty());
}

TEST(AccessQueue, NestedGuardWaitsOutItsTimeAndLeavesTheOuterAlone) {
    ScratchDirectory dir;
    Json::AccessQueue outer(dir / "t.json", true);
    outer.enter()["v"] = 1;
    Json::AccessQueue inner(dir / "t.json", false, 0.5);
    EXPECT_THROW(inner.enter(), error::AccessQueueTimeout);
    EXPECT_TRUE(fs::exists(outer.path_lock()));
    EXPECT_TRUE(fs::exists(outer.path_id()));
    outer.leave();
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"t.json"});
}

TEST(AccessQueue, NotFirstInLineTimesOutAndRemovesItsTicket) {
    ScratchDirectory dir;
    // Live foreign tickets; the listing order decides who is first, so try
    // guards until one finds itself behind another.
    for (int i = 1; i <= 5; ++i) ScratchDirectory::put(dir / ("t.json.id." + std::to_string(i)), "");
    for (int attempt = 0; attempt < 20; ++attempt) {
        Json::AccessQueue queue(dir / "t.json", false, 0.3);
        const auto start = Clock::now();
        if (queue.is_next()) {
            fs::remove(queue.path_id());
            continue;
        }
        EXPECT_GE(seconds_since(start), 0.4);  // settling sleep and three steps
        EXPECT_TRUE(fs::exists(queue.path_id()));
        queue.release_access();
        EXPECT_FALSE(fs::exists(queue.path_id()));
        EXPECT_TRUE(fs::exists(queue.path_lock()));  // others still hold tickets
        return;
    }
    FAIL() << "every guard came first";
}

// Several processes, one file: every increment lands and nothing is left behind.
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
                for (int r = 0; r < rounds; ++r) increment(path);
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

// A holder killed inside the scope delays the others only until its markers age out.
TEST(AccessQueue, KilledHolderIsSweptAfterTheThreshold) {
    ScratchDirectory dir;
    const auto path = dir / "shared.json";
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t holder = ::fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        Json::AccessQueue queue(path, true, 4.0, 4.0);
        queue.enter();
        const char byte = 1;
        (void)!::write(ready[1], &byte, 1);
        for (;;) ::pause();
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    const auto entered = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_EQ(listing(dir.path()).size(), 2u);  // its lock and its ticket

    increment(path, 4.0, 4.0);
    const double since_entry = seconds_since(entered);
    EXPECT_GT(since_entry, 4.0);
    EXPECT_LT(since_entry, 5.5);
    EXPECT_EQ(Json::read(path)["count"], 1);
    EXPECT_EQ(listing(dir.path()), std::set<std::string>{"shared.json"});
}
