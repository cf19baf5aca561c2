// The statistics store, its merge into a shared file, and its messages.
#include <gtest/gtest.h>

#include <filesystem>

#include "test_support.hpp"
#include "zerko/file/json.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/uuid.hpp"
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

const Document empty_store =
    Document::parse(R"({"validate": [], "checks": [], "exported": [], "feedback_sent": [], "version": 1})");

std::vector<double> timestamps(const Document& records) {
    std::vector<double> out;
    for (const auto& r : records) out.push_back(r["timestamp"].get<double>());
    return out;
}

}  // namespace

TEST(StatisticsRecords, DataInOrderAndMessages) {
    EXPECT_EQ(type::Validate(10.5, 2.0).data().dump(), R"({"project":null,"timestamp":10.5,"speed":2.0})");
    EXPECT_EQ(type::Checks(3.0, 0.25, "Имя (Task 01)", "fail").data().dump(),
              R"j({"name":"Имя (Task 01)","result":"fail","timestamp":3.0,"speed":0.25})j");
    const double before = foundation::wall_time();
    const double stamped = type::Exported().data()["timestamp"].get<double>();  // the moment of reading
    EXPECT_TRUE(stamped >= before && stamped <= foundation::wall_time());

    Document contents = empty_store;
    contents["validate"].push_back({{"project", "Проект"}, {"timestamp", 1.5}});
    EXPECT_EQ(HttpRequest("анна", contents).text(),
              R"({"username": "анна", "contents": {"validate": [{"project": "Проект", "timestamp": 1.5}], )"
              R"("checks": [], "exported": [], "feedback_sent": [], "version": 1}})");
    EXPECT_FALSE(HttpResponse(201).accepted());
    EXPECT_TRUE(HttpResponse([] { return Document(200.0); }).accepted());
    EXPECT_FALSE(HttpResponse([] { return Document("200"); }).accepted());
    LogCapture log;
    EXPECT_FALSE(HttpResponse([]() -> Document { throw ValueError("no status"); }).accepted());
    EXPECT_EQ(log.messages(LogLevel::Error), std::vector<std::string>{"ValueError: no status"});
}

TEST(StatisticsStore, WritingMergesWithoutDuplicates) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    Statistics first(path);
    EXPECT_EQ(first.data(), empty_store);  // no file: nothing read, nothing made
    EXPECT_FALSE(fs::exists(path));
    first.add("unknown", {{"timestamp", 1.0}});  // goes nowhere
    first.add(type::Validate(1.0, 0.1, "a.json"));
    first.add(type::Checks(2.0, 0.2, "check", "pass"));
    first.write();
    first.write();
    auto file = file::Json::read(path);
    EXPECT_EQ(timestamps(file["validate"]), std::vector<double>{1.0});
    EXPECT_FALSE(file.contains("version"));  // a merge never brings the version over
    EXPECT_FALSE(file.contains("unknown"));

    // Another process's store adds its own; the first writes again; each record once.
    Statistics second(path);
    second.add(type::Validate(3.0, 0.3, "b.json"));
    second.write();
    first.add(type::Validate(4.0, 0.4, "a.json"));
    first.add(type::Checks(2.0, 9.9, "check", "fail"));  // same timestamp: replaces the file's record
    first.write();
    file = file::Json::read(path);
    EXPECT_EQ(timestamps(file["validate"]), (std::vector<double>{1.0, 3.0, 4.0}));
    EXPECT_EQ(file["checks"], Document::parse(R"([{"name": "check", "result": "fail", "timestamp": 2.0, "speed": 9.9}])"));
    EXPECT_EQ(timestamps(first.data()["validate"]), (std::vector<double>{1.0, 4.0}));

    auto odd = Document::parse(R"({"Version": 7, "custom": [{"timestamp": 1}, {"timestamp": 1.0, "n": 2}]})");
    Statistics::extend(odd, Document::parse(R"({"checks": [{"timestamp": 6}], "version": 1})"));
    EXPECT_EQ(odd, Document::parse(R"({"Version": 7, "custom": [{"timestamp": 1.0, "n": 2}], "checks": [{"timestamp": 6}]})"));
}

TEST(StatisticsStore, UnusableFilesGiveAnEmptyStoreAndFailedWritesAreLogged) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    LogCapture log;
    ScratchDirectory::put(path, R"({"validate": [{"timestamp": 1})");
    EXPECT_EQ(Statistics(path).data(), empty_store);
    EXPECT_TRUE(log.has(LogLevel::Error, "Read Corrupted Statistics: " + path));
    EXPECT_FALSE(fs::exists(path));
    EXPECT_TRUE(fs::is_directory(dir / ".corrupted"));

    ScratchDirectory::put(path, "[1, 2]");  // JSON, but no statistics: quarantined as well
    EXPECT_EQ(Statistics(path).data(), empty_store);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()), 2);

    // A newer format is refused at reading, yet the next write still merges into it.
    ScratchDirectory::put(path, R"({"validate": [{"timestamp": 1}], "version": 2})");
    Statistics newer(path);
    EXPECT_EQ(newer.data(), empty_store);
    EXPECT_TRUE(log.has(LogLevel::Warning, "Incompatible Statistics Version - " + path));
    newer.add(type::Validate(2.0, 0.1));
    newer.write();
    EXPECT_EQ(timestamps(file::Json::read(path)["validate"]), (std::vector<double>{1.0, 2.0}));

    // A file the merge cannot read goes aside, and the records still get written.
    ScratchDirectory::put(path, R"({"validate": 5})");
    newer.write();
    EXPECT_EQ(timestamps(file::Json::read(path)["validate"]), (std::vector<double>{2.0}));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir / ".corrupted"), fs::directory_iterator()), 3);
}

TEST(StatisticsStore, AcceptedResponseEmptiesMemoryAndFile) {
    ScratchDirectory dir;
    const auto path = dir / "statistics.json";
    Statistics store(path);
    store.add(type::Validate(1.0, 0.1));
    store.write();
    const auto request = store.create_http_request("user");
    store.accept_http_response(HttpResponse(500));
    store.accept_http_response(HttpResponse(200), false);
    EXPECT_EQ(file::Json::read(path)["validate"].size(), 1u);
    EXPECT_EQ(store.data()["validate"].size(), 1u);

    LogCapture log;
    store.accept_http_response(HttpResponse(200));
    EXPECT_EQ(store.data(), empty_store);
    EXPECT_EQ(file::Json::read(path), Document::object());
    EXPECT_EQ(log.messages(LogLevel::Debug), (std::vector<std::string>{"Statistics Sent", "Clear Local Statistics"}));
    EXPECT_EQ(request.contents()["validate"].size(), 1u);  // the request keeps its copy
}
