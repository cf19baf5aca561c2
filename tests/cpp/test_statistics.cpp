// The statistics store, its merge into a shared file, and its messages.
#include <gtest/gtest.h>

#include <filesystem>

#include "log_capture.hpp"
#include "scratch_directory.hpp"
#include "zerko/file/json.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/statistics/statistics.hpp"

using namespace zerko;
using foundation::LogLevel;
using statistics::Document;
using statistics::HttpRequest;
using statistics::HttpResponse;
using statistics::Statistics;
using test_support::LogCapture;
using test_support::ScratchDirectory;
namespace type = statistics::type;
namespace fs = std::filesystem;

namespace {

Document empty_store() {
    return Document::parse(R"({"validate": [], "checks": [], "exported": [], "feedback_sent": [], "version": 1})");
}

std::vector<double> timestamps(const Document& records) {
    std::vector<double> out;
    for (const auto& r : records) out.push_back(r["timestamp"].get<double>());
    return out;
}

}  // namespace

TEST(StatisticsRecords, DataKeysInOrder) {
    EXPECT_EQ(type::Validate(10.5, 2.0, "p_0123abcd.json").data().dump(),
              R"({"project":"p_0123abcd.json","timestamp":10.5,"speed":2.0})");
    EXPECT_EQ(type::Validate(1.0, 0.5).data().dump(), R"({"project":null,"timestamp":1.0,"speed":0.5})");
    EXPECT_EQ(type::Checks(3.0, 0.25, "Имя (Task 01)", "fail").data().dump(),
              R"j({"name":"Имя (Task 01)","result":"fail","timestamp":3.0,"speed":0.25})j");
    // Records without content are stamped when read, with fraction.
    const type::Exported exported;
    const double before = type::now();
    const auto first = exported.data()["timestamp"].get<double>();
    EXPECT_GE(first, before);
    EXPECT_LE(first, type::now());
    EXPECT_EQ(exported.key(), "exported");
    EXPECT_EQ(type::FeedbackSent().key(), "feedback_sent");
    EXPECT_EQ(type::Record().key(), "");
}

TEST(StatisticsMessages, OneLineBodyAndStatusCheck) {
    Document contents = empty_store();
    contents["validate"].push_back({{"project", "Проект"}, {"timestamp", 1.5}});
    const HttpRequest request("анна", contents);
    EXPECT_EQ(HttpRequest::header.first, "Content-type");
    EXPECT_EQ(HttpRequest::header.second, "application/json");
    EXPECT_EQ(request.text(),
              R"({"username": "анна", "contents": {"validate": [{"project": "Проект", "timestamp": 1.5}], )"
              R"("checks": [], "exported": [], "feedback_sent": [], "version": 1}})");

    EXPECT_TRUE(HttpResponse(200).accepted());
    EXPECT_FALSE(HttpResponse(201).accepted());
    EXPECT_TRUE(HttpResponse([] { return Document(200.0); }).accepted());
    EXPECT_FALSE(HttpResponse([] { return Document("200"); }).accepted());
    LogCapture log;
    EXPECT_FALSE(HttpResponse([]() -> Document { throw ValueError("no status"); }).accepted());
    EXPECT_EQ(log.messages(LogLevel::Error), std::vector<std::string>{"ValueError: no status"});
}

TEST(StatisticsStore, MissingFileGivesEmptyListsAndNoFile) {
    ScratchDirectory dir;
    Statistics store(dir / "statistics.json");
    EXPECT_EQ(store.data(), empty_store());
    EXPECT_EQ(store.data().begin().key(), "validate");
    EXPECT_FALSE(fs::exists(dir / "statistics.json"));
    // A record of an unknown category goes nowhere.
    store.add("unknown", {{"timestamp", 1.0}});
    EXPECT_EQ(store.data(), empty_store());
}

TEST(StatisticsStore, WritingMergesWithoutDuplicates) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    Statistics first(path);
    first.add(type::Validate(1.0, 0.1, "a.json"));
    first.add(type::Checks(2.0, 0.2, "check", "pass"));
    first.write();
    first.write();  // nothing new: nothing doubles
    auto file = file::Json::read(path);
    EXPECT_EQ(timestamps(file["validate"]), std::vector<double>{1.0});
    EXPECT_EQ(timestamps(file["checks"]), std::vector<double>{2.0});
    EXPECT_FALSE(file.contains("version"));  // a merge never brings the version over

    // A second store (another process) reads what is there, adds its own and
    // writes; then the first writes again. Both sets end up once each.
    Statistics second(path);
    second.add(type::Validate(3.0, 0.3, "b.json"));
    second.write();
    first.add(type::Validate(4.0, 0.4, "a.json"));
    first.add(type::Checks(2.0, 9.9, "check", "fail"));  // same timestamp: replaces the file's record
    first.write();
    file = file::Json::read(path);
    EXPECT_EQ(timestamps(file["validate"]), (std::vector<double>{1.0, 3.0, 4.0}));
    ASSERT_EQ(file["checks"].size(), 1u);
    EXPECT_EQ(file["checks"][0]["result"], "fail");
    // The memory of the first store does not learn of the second's records.
    EXPECT_EQ(timestamps(first.data()["validate"]), (std::vector<double>{1.0, 4.0}));
}

TEST(StatisticsStore, ExtendKeepsForeignKeysAndFoldsTheFilesOwnDuplicates) {
    auto file = Document::parse(R"({"Version": 7, "custom": [{"timestamp": 1}, {"timestamp": 1.0, "n": 2}],
                                    "checks": [{"timestamp": 5, "x": 1}]})");
    auto memory = Document::parse(R"({"checks": [{"timestamp": 6}], "validate": [], "version": 1})");
    Statistics::extend(file, memory);
    EXPECT_EQ(file, Document::parse(R"({"Version": 7, "custom": [{"timestamp": 1.0, "n": 2}],
                                        "checks": [{"timestamp": 5, "x": 1}, {"timestamp": 6}], "validate": []})"));
    auto wrong = Document::parse(R"({"checks": [1, 2]})");
    EXPECT_THROW(Statistics::extend(wrong, memory), TypeError);
    auto untimed = Document::parse(R"({"checks": [{"at": 1}]})");
    EXPECT_THROW(Statistics::extend(untimed, memory), ValueError);
    auto listed = Document::array();
    EXPECT_THROW(Statistics::extend(listed, memory), TypeError);
}

TEST(StatisticsStore, UnreadableFilesGiveAnEmptyStore) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    LogCapture log;

    ScratchDirectory::put(path, R"({"validate": [{"timestamp": 1})");
    Statistics corrupted(path);
    EXPECT_EQ(corrupted.data(), empty_store());
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Statistics: " + path));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()), 1);

    ScratchDirectory::put(path, "[1, 2]");
    EXPECT_EQ(Statistics(path).data(), empty_store());
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Statistics File - " + path));
    EXPECT_TRUE(fs::exists(path));

    // A newer format is refused at reading, yet the next write still merges into it.
    ScratchDirectory::put(path, R"({"validate": [{"timestamp": 1}], "version": 2})");
    Statistics newer(path);
    EXPECT_EQ(newer.data(), empty_store());
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Statistics Version - " + path));
    newer.add(type::Validate(2.0, 0.1));
    newer.write();
    const auto merged = file::Json::read(path);
    EXPECT_EQ(timestamps(merged["validate"]), (std::vector<double>{1.0, 2.0}));
    EXPECT_EQ(merged["version"], 2);

    // An older format is taken as it stands.
    ScratchDirectory::put(path, R"({"validate": [{"timestamp": 1}]})");
    Statistics older(path);
    EXPECT_EQ(older.data()["validate"].size(), 1u);
    EXPECT_EQ(older.data()["version"], 1);
}

TEST(StatisticsStore, FailedWritesAreLoggedAndLeaveTheFile) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    Statistics store(path);
    store.add(type::Validate(1.0, 0.1));
    ScratchDirectory::put(path, R"({"validate": 5})");
    LogCapture log;
    store.write();
    EXPECT_EQ(log.messages(LogLevel::Error).size(), 1u);
    EXPECT_EQ(ScratchDirectory::get(path), "{\n  \"validate\": 5\n}");
    // A store in a directory that does not exist logs as well.
    Statistics lost(dir / "none/statistics.json");
    lost.write();
    EXPECT_EQ(log.messages(LogLevel::Error).size(), 2u);
}

TEST(StatisticsStore, AcceptedResponseEmptiesMemoryAndFile) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    Statistics store(path);
    store.add(type::Validate(1.0, 0.1));
    store.write();
    const auto request = store.create_http_request("user");
    EXPECT_EQ(request.contents()["validate"].size(), 1u);

    store.accept_http_response(HttpResponse(500));
    EXPECT_EQ(file::Json::read(path)["validate"].size(), 1u);
    store.accept_http_response(HttpResponse(200), false);
    EXPECT_EQ(file::Json::read(path)["validate"].size(), 1u);
    EXPECT_EQ(store.data()["validate"].size(), 1u);

    LogCapture log;
    store.accept_http_response(HttpResponse(200));
    EXPECT_EQ(store.data(), empty_store());
    EXPECT_EQ(file::Json::read(path), Document::object());
    EXPECT_EQ(log.messages(LogLevel::Debug), (std::vector<std::string>{"Statistics Sent", "Clear Local Statistics"}));
    // The request that was built before keeps its copy.
    EXPECT_EQ(request.contents()["validate"].size(), 1u);
}
