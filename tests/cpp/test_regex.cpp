// Regular expressions against Python's own `re` (tests/data/regex_corpus.json,
// written by tests/data/make_regex_corpus.py), plus the work bound, errors,
// the cache and concurrent use.
#include "zerko/foundation/regex.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include "zerko/foundation/json_document.hpp"
#include <string>
#include <thread>
#include <vector>

namespace rx = zerko::regex;
using Json = zerko::JsonDocument;

namespace {

const Json& corpus() {
    static const Json data = [] {
        std::ifstream in(std::string(ZERKO_TEST_DATA) + "/regex_corpus.json");
        if (!in) throw std::runtime_error("regex_corpus.json not found");
        return Json::parse(in);
    }();
    return data;
}

std::string describe(const Json& c) {
    return "pattern " + Json(c["pattern"]).dump() + " flags " + std::to_string(c["flags"].get<int>()) +
           (c.contains("subject") ? " subject " + Json(c["subject"]).dump() : "");
}

/// The corpus form of a match: spans per group (null when unset) and named groups.
Json as_json(const std::optional<rx::Match>& m) {
    if (!m) return nullptr;
    Json out;
    out["spans"] = Json::array();
    for (std::size_t g = 0; g < m->size(); ++g) {
        if (m->has(g)) {
            out["spans"].push_back({m->start(g), m->end(g)});
        } else {
            out["spans"].push_back(nullptr);
        }
    }
    out["named"] = Json::object();
    for (const auto& [name, text] : m->named()) {
        out["named"][name] = text ? Json(*text) : Json(nullptr);
    }
    return out;
}

Json as_json(const std::vector<std::optional<std::string>>& parts) {
    Json out = Json::array();
    for (const auto& p : parts) out.push_back(p ? Json(*p) : Json(nullptr));
    return out;
}

std::string utf8(char32_t c) {
    std::string out;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

}  // namespace

// ------------------------------------------------------------ the corpus

TEST(RegexCorpus, MatchSearchFullmatchFindallAgreeWithPython) {
    const Json& cases = corpus()["cases"];
    ASSERT_GT(cases.size(), 200u);
    for (const Json& c : cases) {
        SCOPED_TRACE(describe(c));
        const auto re = rx::Regex::compile(c["pattern"].get<std::string>(), c["flags"].get<unsigned>());
        const auto subject = c["subject"].get<std::string>();
        EXPECT_EQ(as_json(re->match(subject)), c["match"]);
        EXPECT_EQ(as_json(re->search(subject)), c["search"]);
        EXPECT_EQ(as_json(re->fullmatch(subject)), c["fullmatch"]);
        EXPECT_EQ(re->matches(subject), !c["match"].is_null());
        EXPECT_EQ(re->found_in(subject), !c["search"].is_null());
        EXPECT_EQ(Json(re->findall(subject)), c["findall"]);
    }
}

TEST(RegexCorpus, SubAgreesWithPython) {
    for (const Json& c : corpus()["sub"]) {
        SCOPED_TRACE(describe(c) + " repl " + c["repl"].dump());
        const auto pattern = c["pattern"].get<std::string>();
        const auto repl = c["repl"].get<std::string>();
        const auto subject = c["subject"].get<std::string>();
        const auto count = c["count"].get<std::size_t>();
        const auto flags = c["flags"].get<unsigned>();
        if (c["result"].is_null()) {
            EXPECT_THROW(rx::sub(pattern, repl, subject, count, flags), zerko::RegexError);
        } else {
            EXPECT_EQ(rx::sub(pattern, repl, subject, count, flags), c["result"].get<std::string>());
        }
    }
}

TEST(RegexCorpus, SplitAgreesWithPython) {
    for (const Json& c : corpus()["split"]) {
        SCOPED_TRACE(describe(c));
        EXPECT_EQ(as_json(rx::split(c["pattern"].get<std::string>(), c["subject"].get<std::string>(),
                                    c["maxsplit"].get<std::size_t>(), c["flags"].get<unsigned>())),
                  c["result"]);
    }
}

TEST(RegexCorpus, PatternsPythonRejectsRaiseRegexError) {
    for (const Json& c : corpus()["rejected"]) {
        SCOPED_TRACE(describe(c));
        try {
            rx::Regex::compile(c["pattern"].get<std::string>(), c["flags"].get<unsigned>());
            ADD_FAILURE() << "accepted";
        } catch (const zerko::RegexError& e) {
            // Python's own text, position (and line and column) included.
            if (!c["message"].is_null()) {
                EXPECT_EQ(std::string(e.what()), c["message"].get<std::string>());
            }
        }
    }
}

TEST(RegexCorpus, EscapeAgreesWithPython) {
    for (const Json& c : corpus()["escape"]) {
        const auto text = c["text"].get<std::string>();
        EXPECT_EQ(rx::escape(text), c["escaped"].get<std::string>());
        EXPECT_TRUE(rx::fullmatch(rx::escape(text), text)) << text;
    }
}

// \d \w \s and their negations, alone and inside classes, on every code point.
TEST(RegexCorpus, UnicodeClassesAgreeOnEveryCodePoint) {
    struct Form {
        const char* pattern;
        const char* set;
        bool inside;  // true: matches the set; false: its complement
    };
    const Form forms[] = {
        {"\\d", "digit", true},   {"\\D", "digit", false},  {"[\\d]", "digit", true},
        {"[^\\d]", "digit", false}, {"[\\D]", "digit", false}, {"\\w", "word", true},
        {"\\W", "word", false},   {"[\\w]", "word", true},  {"[\\W]", "word", false},
        {"[^\\W]", "word", true}, {"\\s", "space", true},   {"\\S", "space", false},
        {"[\\S]", "space", false}, {"[^\\s]", "space", false},
    };
    for (const Form& form : forms) {
        SCOPED_TRACE(form.pattern);
        const auto re = rx::Regex::compile(form.pattern);
        const Json& ranges = corpus()["classes"][form.set];
        std::size_t next = 0, mismatches = 0;
        for (char32_t c = 0; c <= 0x10FFFF && mismatches < 5; ++c) {
            if (c == 0xD800) c = 0xE000;
            while (next < ranges.size() && ranges[next][1].get<char32_t>() < c) ++next;
            const bool in_set = next < ranges.size() && ranges[next][0].get<char32_t>() <= c;
            if (re->matches(utf8(c)) != (in_set == form.inside)) {
                ADD_FAILURE() << "code point " << std::hex << static_cast<std::uint32_t>(c);
                ++mismatches;
            }
        }
    }
}

// ------------------------------------------------------------ behaviour

TEST(RegexTranslate, RewritesWhatPcre2ReadsDifferently) {
    EXPECT_EQ(rx::translate(R"(a\Z)"), R"(a\z)");
    EXPECT_EQ(rx::translate(R"(a{,3})"), "a{0,3}");
    EXPECT_EQ(rx::translate(R"(\d)"), R"(\p{Nd})");
    EXPECT_EQ(rx::translate(R"(\v)"), R"(\x{b})");
    EXPECT_EQ(rx::translate(R"(\u0416)"), "Ж");
    EXPECT_EQ(rx::translate(R"((?P<n>a)(?P=n))"), R"((a)\g{1})");
    EXPECT_EQ(rx::translate("(?x) a b # c"), "ab");
    EXPECT_EQ(rx::translate("(?u)x"), "x");
    EXPECT_EQ(rx::translate("(?ia)x"), "(?i)(?-i:[xX])");  // ASCII-only folding
    EXPECT_EQ(rx::translate(R"([[:a])"), R"([\[\:a])");
}

TEST(RegexTranslate, NamedCharactersResolveThroughTheInstalledNames) {
    const auto undefined = [](std::string_view pattern) {
        try {
            rx::Regex::compile(pattern);
        } catch (const zerko::RegexError& e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(undefined(R"(x\N{EM DASH})"), "undefined character name 'EM DASH' at position 1");
    rx::set_character_names([](std::string_view name) -> std::optional<char32_t> {
        if (name == "EM DASH") return U'\u2014';
        if (name == "CYRILLIC SMALL LETTER YA") return U'\u044f';
        return std::nullopt;
    });
    EXPECT_TRUE(rx::fullmatch(R"(\N{CYRILLIC SMALL LETTER YA}+)", "яяя"));
    EXPECT_TRUE(rx::fullmatch(R"([a\N{EM DASH}]{2})", "a—"));
    EXPECT_EQ(undefined(R"([\N{EM DASH}-\N{CYRILLIC SMALL LETTER YA}])"), R"(bad character range \N-\N at position 36)");
    EXPECT_EQ(undefined(R"([ab\N{EN DASH}])"), "undefined character name 'EN DASH' at position 3");
    EXPECT_EQ(undefined(R"(\N{})"), "missing character name at position 3");
    EXPECT_EQ(undefined(R"(\N{EM DASH)"), "missing }, unterminated name at position 3");
    rx::set_character_names({});
}

TEST(RegexMatch, GroupAccessAndPositions) {
    const auto re = rx::Regex::compile(R"((?P<asset>[a-z]+)(?P<num>\d+)?_(grp))");
    EXPECT_EQ(re->groups(), 3u);
    ASSERT_EQ(re->group_names().size(), 2u);
    EXPECT_EQ(re->group_names()[1], (std::pair<std::string, std::size_t>{"num", 2}));

    const auto m = re->match("rock_grp");
    ASSERT_TRUE(m);
    EXPECT_EQ(m->group("asset"), "rock");
    EXPECT_FALSE(m->has(2));
    EXPECT_EQ(m->span(2), (std::pair{std::string::npos, std::string::npos}));
    EXPECT_EQ(m->group(2), "");
    EXPECT_EQ(m->group(3), "grp");
    EXPECT_THROW(m->group("nope"), zerko::ValueError);
    EXPECT_THROW(m->group(4), zerko::ValueError);

    // pos: match is anchored there, search starts there, lookbehind sees before it
    const auto digits = rx::Regex::compile(R"((?<=_)\d+)");
    EXPECT_FALSE(digits->match("ab_12", 2));
    EXPECT_EQ(digits->match("ab_12", 3)->span(), (std::pair<std::size_t, std::size_t>{3, 5}));
    EXPECT_EQ(digits->search("_1_22", 2)->group(), "22");
    EXPECT_EQ(rx::Regex::compile("")->match("abc", 99)->span(), (std::pair<std::size_t, std::size_t>{3, 3}));
    // byte offsets in UTF-8
    EXPECT_EQ(rx::search("мир", "привет мир")->span(), (std::pair<std::size_t, std::size_t>{13, 19}));
}

TEST(RegexMatch, InvalidUtf8SubjectsDoNotBreakMatching) {
    const std::string subject = "ab\xff\xfe" "cd\xc3";
    EXPECT_EQ(rx::search("cd", subject)->span(), (std::pair<std::size_t, std::size_t>{4, 6}));
    EXPECT_FALSE(rx::fullmatch(".*", subject));
    EXPECT_TRUE(rx::Regex::compile("ab")->matches(subject));
    EXPECT_EQ(rx::sub("[a-z]", "-", subject), "--\xff\xfe" "--\xc3");
    // Each byte of an invalid sequence is one position of its own.
    EXPECT_EQ(rx::Regex::compile("")->findall(subject).size(), subject.size() + 1);
    EXPECT_THROW(rx::Regex::compile("a\xff"), zerko::RegexError);
}

TEST(RegexErrors, InvalidPatternsExplainWhereAndWhy) {
    const auto text = [](std::string_view pattern) {
        try {
            rx::Regex::compile(pattern);
        } catch (const zerko::RegexError& e) {
            return std::string(e.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(text("rock(_[0-9]+"), "missing ), unterminated subpattern at position 4");
    EXPECT_EQ(text(R"(\p{L}+)"), R"(bad escape \p at position 0)");
    // A pattern of several lines also names the line and column, as Python does.
    EXPECT_EQ(text("a\n\n(b"), "missing ), unterminated subpattern at position 3 (line 3, column 1)");
    // Limits that only PCRE2 knows are reported at the user's position.
    EXPECT_EQ(text("ab{70000}"), "number too big in {} quantifier at position 2");
    try {
        rx::Regex::compile("ж(");
        ADD_FAILURE() << "accepted";
    } catch (const zerko::RegexError& e) {
        EXPECT_EQ(e.message(), "missing ), unterminated subpattern");
        EXPECT_EQ(e.pattern(), "ж(");
        EXPECT_EQ(e.position(), 1u);  // characters, not bytes
    }
    // RegexError is a ValueError for callers that treat it as bad input
    EXPECT_THROW(rx::Regex::compile("("), zerko::ValueError);
}

TEST(RegexWorkBound, CatastrophicBacktrackingRaisesPromptly) {
    const auto re = rx::Regex::compile("(a+)+$");
    const std::string subject = std::string(30, 'a') + "!";
    for (int round = 0; round < 3; ++round) {
        const auto start = std::chrono::steady_clock::now();
        try {
            (void)re->search(subject);
            ADD_FAILURE() << "no error";
        } catch (const zerko::RegexError& e) {
            EXPECT_EQ(std::string(e.what()), "regular expression exceeded its work limit: (a+)+$");
        }
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
    }
    EXPECT_THROW(re->matches(subject), zerko::RegexError);
    EXPECT_THROW(re->sub("x", subject), zerko::RegexError);
    EXPECT_THROW(rx::fullmatch("(a|aa)+", std::string(60, 'a') + "b"), zerko::RegexError);
    // An ordinary match is well inside the bound.
    EXPECT_TRUE(re->found_in("aaaa"));
}

TEST(RegexWorkBound, GrowsWithTheSubjectSoLinearPatternsNeverTripIt) {
    std::string name;
    for (int i = 0; i < 25000; ++i) name += "ab";
    // Each character is a backtracking point, and the capturing repeat
    // outgrows the JIT stack: neither may read as a work-bound error.
    EXPECT_TRUE(rx::fullmatch("(a|b)*", name));
    EXPECT_TRUE(rx::match("^(a|b)*$", name));
    EXPECT_FALSE(rx::match("^(?:a|b)*c", name));
    EXPECT_EQ(rx::search("b(?:a|b)*!", name + "!x")->span(), (std::pair<std::size_t, std::size_t>{1, 50001}));
    EXPECT_EQ(rx::sub("(a)(b)", "\\2\\1", name).substr(0, 4), "baba");
    // The base of the bound still ends an exponential match on a short name.
    EXPECT_THROW(rx::match("(a+)+$", std::string(29, 'a') + "!"), zerko::RegexError);
}

TEST(RegexWorkBound, LimitIsConfigurable) {
    const std::uint32_t saved = rx::Regex::match_limit();
    EXPECT_EQ(saved, 100000u);
    const auto re = rx::Regex::compile("(a+)+$");
    const std::string subject = std::string(16, 'a') + "!";
    rx::Regex::set_match_limit(10'000'000);
    EXPECT_FALSE(re->found_in(subject));  // finishes: a real "no match"
    rx::Regex::set_match_limit(1000);
    EXPECT_THROW(re->found_in(subject), zerko::RegexError);
    rx::Regex::set_match_limit(saved);
}

TEST(RegexCache, SamePatternAndFlagsGiveTheSameObject) {
    const auto a = rx::Regex::compile(R"(^cache_[a-z]+\d*$)");
    const auto b = rx::Regex::compile(R"(^cache_[a-z]+\d*$)");
    const auto c = rx::Regex::compile(R"(^cache_[a-z]+\d*$)", rx::IgnoreCase);
    EXPECT_EQ(a.get(), b.get());
    EXPECT_NE(a.get(), c.get());
    EXPECT_EQ(c.get(), rx::Regex::compile(R"(^cache_[a-z]+\d*$)", rx::IgnoreCase).get());
    EXPECT_GE(rx::Regex::cache_size(), 2u);
    EXPECT_TRUE(c->matches("CACHE_Abc12"));
    EXPECT_FALSE(a->matches("CACHE_Abc12"));
}

TEST(RegexThreads, ConcurrentMatchingGivesTheSameAnswers) {
    struct Probe {
        std::string pattern, subject;
        bool match;
        std::string sub;  // sub(pattern, "<\\g<0>>", subject)
    };
    const std::vector<Probe> probes = {
        {R"(^[A-Za-z_0-9]+$)", "pCube1_geo", true, "<pCube1_geo>"},
        {R"(^(?P<asset>[a-z]+[0-9]+)_grp$)", "rock01_grp", true, "<rock01_grp>"},
        {R"(\d+)", "a12b345", false, "a<12>b<345>"},
        {R"((?i)ёлка)", "ЁЛКА ёлка", true, "<ЁЛКА> <ёлка>"},
        {R"(^UCX_rock0001_[0-9]{2}$)", "UCX_rock0001_7", false, "UCX_rock0001_7"},
        {R"(x*)", "ab", true, "<>a<>b<>"},
    };
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 3000; ++i) {
                const Probe& p = probes[(i + t) % probes.size()];
                const auto re = rx::Regex::compile(p.pattern);
                const auto m = re->match(p.subject);
                if (re->matches(p.subject) != p.match || m.has_value() != p.match ||
                    (m && m->group() != re->match(p.subject)->group()) ||
                    re->sub("<\\g<0>>", p.subject) != p.sub) {
                    ++wrong;
                }
            }
        });
    }
    for (auto& th : threads) th.join();
    EXPECT_EQ(wrong.load(), 0);
}
