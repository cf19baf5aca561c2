// Costs of the regex wrapper on the work a scene validator does: anchored
// matches of naming rules against short node names, from one and from
// several threads, and the cached compile that rule code calls each time.
#include "zerko/foundation/regex.hpp"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace rx = zerko::regex;
using Clock = std::chrono::steady_clock;

namespace {

const std::vector<std::string> kNames = {
    "pCube1",           "pCube1_geo",         "UCX_rock0001_01",   "rock01_grp",
    "char_arm_L_jnt_01", "SM_Rock_Large_01",  "Привет_мир_01",     "1badName",
    "env_tree_oak_v012", "UCX_rock0001_1",    "body_GEO",          "lightRig_key_LGT",
};

const std::vector<std::string> kPatterns = {
    R"(^[A-Za-z_0-9]+$)",
    R"(^\d.*$)",
    R"(^(?P<asset>[a-z]+[0-9]+)_grp$)",
    R"(^UCX_rock0001_[0-9]{2}$)",
    R"(^[a-z]+(_[a-z0-9]+)*_(geo|grp|jnt|ctrl)$)",
    R"(_(L|R|C)(_|$))",
};

volatile std::size_t g_sink = 0;

template <class F>
double ns_per_call(std::size_t calls, F&& f) {
    const auto start = Clock::now();
    f(calls);
    const std::chrono::duration<double, std::nano> spent = Clock::now() - start;
    return spent.count() / static_cast<double>(calls);
}

}  // namespace

int main() {
    constexpr std::size_t kCalls = 2'000'000;
    const auto shorter = [](const std::string& a, const std::string& b) { return a.size() < b.size(); };
    std::printf("regex wrapper, %zu names of %zu-%zu bytes\n", kNames.size(),
                std::min_element(kNames.begin(), kNames.end(), shorter)->size(),
                std::max_element(kNames.begin(), kNames.end(), shorter)->size());

    std::printf("\n%-46s %10s %10s %10s %10s\n", "pattern", "matches()", "match()", "found_in()",
                "fullmatch");
    for (const std::string& pattern : kPatterns) {
        const auto re = rx::Regex::compile(pattern);
        auto loop = [&](auto&& call) {
            return ns_per_call(kCalls, [&](std::size_t n) {
                std::size_t hits = 0;
                for (std::size_t i = 0; i < n; ++i) hits += call(kNames[i % kNames.size()]);
                g_sink = hits;
            });
        };
        const double m = loop([&](const std::string& s) { return re->matches(s) ? 1 : 0; });
        const double mo = loop([&](const std::string& s) { return re->match(s) ? 1 : 0; });
        const double f = loop([&](const std::string& s) { return re->found_in(s) ? 1 : 0; });
        const double fm = loop([&](const std::string& s) { return re->fullmatch(s) ? 1 : 0; });
        std::printf("%-46s %8.1f ns %8.1f ns %8.1f ns %8.1f ns\n", pattern.c_str(), m, mo, f, fm);
    }

    // Rule code calls compile() with the same text over and over.
    const double lookup = ns_per_call(kCalls, [&](std::size_t n) {
        std::size_t total = 0;
        for (std::size_t i = 0; i < n; ++i) {
            total += rx::Regex::compile(kPatterns[i % kPatterns.size()])->groups();
        }
        g_sink = total;
    });
    std::printf("\ncached compile lookup:              %8.1f ns\n", lookup);
    const double helper = ns_per_call(kCalls, [&](std::size_t n) {
        std::size_t hits = 0;
        for (std::size_t i = 0; i < n; ++i) {
            hits += rx::match(kPatterns[0], kNames[i % kNames.size()]) ? 1 : 0;
        }
        g_sink = hits;
    });
    std::printf("rx::match(pattern, name) (lookup + match): %8.1f ns\n", helper);

    constexpr std::size_t kFresh = 2000;
    const double fresh = ns_per_call(kFresh, [&](std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) {
            const auto re = rx::Regex::compile("^bench_fresh_" + std::to_string(i) + R"(_[a-z]+\d{2}$)");
            // The first match also compiles the anchored form.
            g_sink = re->matches("bench_fresh_1_ab12") ? 1 : 0;
        }
    });
    std::printf("first compile (translate + 2x compile + JIT): %8.0f ns\n", fresh);

    // Throughput of the boolean form from several threads at once.
    const auto re = rx::Regex::compile(kPatterns[0]);
    for (unsigned threads : {1u, 2u, 4u, 8u}) {
        const std::size_t per_thread = kCalls / 2;
        const auto start = Clock::now();
        std::vector<std::thread> pool;
        for (unsigned t = 0; t < threads; ++t) {
            pool.emplace_back([&] {
                std::size_t hits = 0;
                for (std::size_t i = 0; i < per_thread; ++i) {
                    hits += re->matches(kNames[i % kNames.size()]) ? 1 : 0;
                }
                g_sink = hits;
            });
        }
        for (auto& th : pool) th.join();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        std::printf("matches() from %u thread(s): %6.1f M/s total\n", threads,
                    static_cast<double>(per_thread * threads) / seconds / 1e6);
    }

    // The work bound: an exponential expression on a short name ends in an
    // error at once, while expressions that are linear for Python run to
    // their answer on long subjects (the bound grows with the subject).
    const auto best_ms = [](auto&& call) {
        double best = 1e300;
        for (int round = 0; round < 5; ++round) {
            const auto start = Clock::now();
            try {
                g_sink = call() ? 1 : 0;
            } catch (const zerko::RegexError&) {
                g_sink = 2;
            }
            best = std::min(best, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
        }
        return best;
    };
    const std::string short_subject = std::string(29, 'a') + "!";
    const auto evil = rx::Regex::compile("(a+)+$");
    std::printf("\n(a+)+$ on 30 characters ends (error) after %.3f ms (base limit %u)\n",
                best_ms([&] { return evil->found_in(short_subject); }), rx::Regex::match_limit());
    std::string long_subject;
    for (int i = 0; i < 25000; ++i) long_subject += "ab";
    const auto alternation = rx::Regex::compile("(a|b)*");
    std::printf("(a|b)* fullmatch on 50,000 characters:   %8.3f ms\n",
                best_ms([&] { return alternation->fullmatch(long_subject).has_value(); }));
    const auto no_match = rx::Regex::compile("^(?:a|b)*c");
    std::printf("^(?:a|b)*c match on 50,000 characters:   %8.3f ms\n",
                best_ms([&] { return no_match->matches(long_subject); }));
    const auto pair = rx::Regex::compile("(a)(b)");
    std::printf("(a)(b) sub on 50,000 characters:         %8.3f ms\n",
                best_ms([&] { return !pair->sub("\\2\\1", long_subject).empty(); }));
    return 0;
}
