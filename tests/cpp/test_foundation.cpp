// Strings, naming, template filling, errors, logger and callbacks.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "zerko/foundation/callbacks.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"

using namespace zerko;
using namespace zerko::foundation;

TEST(Naming, AttributeAndPrivateRules) {
    EXPECT_FALSE(Naming::is_attribute(""));
    EXPECT_FALSE(Naming::is_attribute("9lives"));
    EXPECT_FALSE(Naming::is_attribute("a-b"));
    EXPECT_FALSE(Naming::is_attribute("имя"));
    EXPECT_TRUE(Naming::is_attribute("_9"));
    EXPECT_TRUE(Naming::is_attribute("__x"));
    EXPECT_TRUE(Naming::is_attribute("name\n"));  // `$` accepts one final line feed
    EXPECT_FALSE(Naming::is_attribute("name\n\n"));
    EXPECT_FALSE(Naming::is_private("__"));
    EXPECT_TRUE(Naming::is_private("__a"));
    EXPECT_FALSE(Naming::is_private("__\n"));
    EXPECT_FALSE(Naming::is_private("_a"));
}

TEST(Naming, ForceAsciiTransliteratesRussianAndLatin) {
    EXPECT_EQ(Naming::force_ascii("  Мой_файл.v2 "), "moi_fail_v2");
    EXPECT_EQ(Naming::force_ascii("  Мой_файл.v2 ", true), "Moi_Fail_V2");
    EXPECT_EQ(Naming::force_ascii("жэю"), "");
    EXPECT_EQ(Naming::force_ascii("Щука-Ёж"), "shuka_io");
    EXPECT_EQ(Naming::force_ascii("_lead"), "_lead");
    EXPECT_EQ(Naming::force_ascii(" lead"), "lead");
    EXPECT_EQ(Naming::force_ascii("Вася Пупкин", true), "Basia_Pupkin");
    EXPECT_EQ(Naming::force_ascii("Ы2x", true), "Y2X");
}

TEST(Naming, FiltersWorkPerCodePoint) {
    EXPECT_EQ(Naming::latin_filter("a\tbЖc~\x7f"), "abc~");
    EXPECT_EQ(Naming::en_ru_filter("Ёж ёЖ\tЂ€z"), "Ёж ёЖz");
    EXPECT_EQ(Naming::space_filter("\t a b \t"), "\t a b \t");
    EXPECT_EQ(Naming::space_filter("  a b  "), "a b");
    EXPECT_EQ(Naming::ghost_filter("ghostAghostghostB"), "AB");
    EXPECT_EQ(Naming::strip("ёёxёё", "ё"), "x");
    EXPECT_EQ(Naming::strip("--a-b--", "-"), "a-b");
}

TEST(NamesControl, NextNumberIsOneAboveTheHighest) {
    NamesControl names;
    EXPECT_EQ(names.get_init("Box"), "Box");
    EXPECT_EQ(names.get_init("Box"), "Box");  // registers nothing
    names.append("Box");
    EXPECT_EQ(names.get_init("Box"), "Box0");
    names.append("Box7");
    EXPECT_EQ(names.get_init("Box"), "Box8");
    names.remove("Box7");
    names.append("Box007");
    EXPECT_EQ(names.get_init("Box"), "Box8");
    names.remove("Box007");
    names.append("MyBox3");  // substring, not prefix
    EXPECT_EQ(names.get_init("Box"), "Box4");
    names.clear();
    names.append("Box");
    names.append("Box_2");
    names.append("Box12x");
    EXPECT_EQ(names.get_init("Box"), "Box0");
    names.rename("unknown", "Other");
    EXPECT_TRUE(names.exists("Other"));
    names.append("");
    EXPECT_THROW(names.get_init(""), ValueError);
}

TEST(Format, FillsPlaceholdersLikePython) {
    EXPECT_EQ(format("{} (Task {:02d})", {std::string("Check"), std::int64_t{2}}), "Check (Task 02)");
    EXPECT_EQ(format("{:02d}", {std::int64_t{123}}), "123");
    EXPECT_EQ(format("{{}} {}", {0.5}), "{} 0.5");
    EXPECT_EQ(format("{} {} {} {}", {1e16, 5.0, 1e-05, 0.0001}), "1e+16 5.0 1e-05 0.0001");
    EXPECT_THROW(format("{} {}", {std::string("one")}), ValueError);
    EXPECT_THROW(format("{:02d}", {std::string("x")}), ValueError);
}

TEST(Errors, SentencesAndNames) {
    EXPECT_STREQ(error::WrongAttributeName().what(), "Wrong Name for Attribute");
    EXPECT_STREQ(error::WrongAttributeName("1st").what(), "Wrong Name for Attribute - \"1st\"");
    EXPECT_STREQ(error::PrivateAttributeName("__mine").what(), "Used Private Name for Attribute - \"__mine\"");
    EXPECT_STREQ(error::AccessQueueTimeout().what(), "Await Time for File Access is Out");
    const auto d = describe(std::make_exception_ptr(error::ValidationError()));
    EXPECT_EQ(d.class_name, "ValidationError");
    EXPECT_EQ(d.text, "Check Task Found Issue");
}

namespace {
class CollectingSink : public LogSink {
public:
    void deliver(LogLevel level, const std::string& message) override {
        std::lock_guard lock(mutex);
        messages.emplace_back(level, message);
    }
    std::mutex mutex;
    std::vector<std::pair<LogLevel, std::string>> messages;
};

class SlowSink : public LogSink {
public:
    void deliver(LogLevel, const std::string&) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        ++count;
    }
    std::atomic<int> count{0};
};
}  // namespace

TEST(Logger, DeliversEverythingWithoutHoldingTheCaller) {
    Logger::flush();  // what earlier tests logged goes to the old sink
    auto slow = std::make_shared<SlowSink>();
    Logger::set_sink(slow);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 200; ++i) Logger::info("message");
    const auto spent = std::chrono::steady_clock::now() - start;
    EXPECT_LT(spent, std::chrono::milliseconds(500));  // 200 x 5 ms would be 1 s
    Logger::flush();
    EXPECT_EQ(slow->count.load(), 200);

    auto sink = std::make_shared<CollectingSink>();
    Logger::set_sink(sink);
    Logger::exception("\n\nbroken\n");
    Logger::exception(std::make_exception_ptr(TypeError("bad")));
    Logger::flush();
    Logger::set_sink(nullptr);
    ASSERT_EQ(sink->messages.size(), 2u);
    EXPECT_EQ(sink->messages[0], std::make_pair(LogLevel::Error, std::string("broken")));
    EXPECT_EQ(sink->messages[1].second, "TypeError: bad");
}

TEST(CallBacks, RegisterOnceAndSurviveFailures) {
    CallBacks callbacks;
    int calls = 0;
    int key_a = 0, key_b = 0;
    auto a = make_callback(
        [&](const CallArgs& args) { calls += args.positional.at(0).get<int>() * args.keyword.at("times").get<int>(); },
        &key_a);
    auto failing = make_callback([](const CallArgs&) { throw TypeError("fails"); }, &key_b);
    callbacks.buffer_loaded.register_(a);
    callbacks.buffer_loaded.register_(a);
    callbacks.buffer_loaded.register_(failing);
    callbacks.buffer_loaded.register_(make_callback([&](const CallArgs&) { calls += 100; }, &calls));
    EXPECT_EQ(callbacks.buffer_loaded.size(), 3u);
    EXPECT_NO_THROW(callbacks.buffer_loaded(CallArgs{JsonDocument::array({5}), {{"times", 1}}}));
    EXPECT_EQ(calls, 105);
    callbacks.buffer_loaded.delete_(&key_b);
    EXPECT_EQ(callbacks.buffer_loaded.size(), 2u);
    EXPECT_NO_THROW(callbacks.http_no_response());
    EXPECT_EQ(callbacks.find("buffer_loaded"), &callbacks.buffer_loaded);
    EXPECT_EQ(callbacks.find("nothing"), nullptr);
    callbacks.clear();
    EXPECT_EQ(callbacks.buffer_loaded.size(), 0u);
}
