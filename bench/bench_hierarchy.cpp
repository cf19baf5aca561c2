// Hierarchy benchmark: one container "assets" holding N assets of 50 objects
// each, matched against the project pattern of a rock asset. Prints the time
// of the snapshot through a C++ operator and of the search (root scopes, then
// mask and validity of every asset), for N = 1,000 and N = 10,000.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "../tests/cpp/memory_scene.hpp"
#include "zerko/hierarchy/hierarchy.hpp"

using namespace zerko;
using Clock = std::chrono::steady_clock;

namespace {

std::shared_ptr<hierarchy::Rule> rule(const char* stamp, const char* regex, int minimum, int maximum, const char* type,
                                      const char* name = nullptr) {
    auto r = std::make_shared<hierarchy::Rule>();
    r->stamp = stamp;
    r->name = name ? name : stamp;
    r->regex = regex;
    r->range = {minimum, maximum};
    r->types = {type};
    return r;
}

hierarchy::TreeNode leaf(const char* stamp) { return {stamp, {}}; }
hierarchy::TreeNode tree() {
    hierarchy::TreeNode grp{"grp", {leaf("pivot"), {"col", {leaf("ucx")}}, {"geo", {leaf("part")}}}};
    return {"", {{"ghost", {grp}}}};
}

double ms(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

double run(int n) {
    auto scene = std::make_shared<testing::MemoryScene>();
    const auto assets = scene->add("", "assets", "transform");
    for (int a = 1; a <= n; ++a) {
        char name[32];
        std::snprintf(name, sizeof name, "rock%04d", a);
        const std::string asset = name;
        const auto grp = scene->add(assets, asset + "_grp", "transform");
        const auto geo = scene->add(grp, asset + "_geo", "transform");
        for (int p = 0; p < 40; ++p) scene->add(geo, asset + "_part" + std::to_string(p), "mesh");
        const auto col = scene->add(grp, asset + "_col", "transform");
        for (int c = 0; c < 6; ++c) scene->add(col, "UCX_" + asset + "_0" + std::to_string(c), "mesh");
        scene->add(grp, asset + "_pivot", "locator");
    }

    auto virt = std::make_shared<scene::Virtual>(scene);
    const auto t0 = Clock::now();
    virt->upload({assets});
    const auto t1 = Clock::now();

    hierarchy::Hierarchy h(virt);
    // Uses stand before the definitions in the rule list and the tree.
    h.pattern().set({rule("ghost", "^assets$", 1, 1, "transform", "ghost"),
                     rule("pivot", "^<asset>_pivot$", 0, 1, "locator"), rule("col", "^<asset>_col$", 0, 1, "transform"),
                     rule("ucx", "^UCX_<asset>_<c:[0-9]{2}>$", 1, 6, "mesh"),
                     rule("part", "^<asset>_part<n:[0-9]+>$", 1, 40, "mesh"),
                     rule("geo", "^<asset>_geo$", 1, 1, "transform"),
                     rule("grp", "^<asset:[a-z]+[0-9]+>_grp$", 1, 1, "transform")},
                    tree());

    const auto roots = virt->get_children(assets);
    // The best of a few runs: the machine is shared, and the best run is the
    // one least disturbed by others.
    double best = 1e300;
    std::size_t valid = 0, found = 0;
    for (int repeat = 0; repeat < (n <= 1000 ? 7 : 3); ++repeat) {
        valid = found = 0;
        const auto t2 = Clock::now();
        for (const auto& group : h.root_scopes(roots)) {
            for (const auto& [layer, ok] : h.cut(group)) {
                found += layer.size();
                valid += ok;
            }
        }
        best = std::min(best, ms(Clock::now() - t2));
    }
    std::printf("N=%6d objects=%7zu  snapshot(C++ operator) %8.2f ms (%5.2f M objects/s)  search %8.2f ms  "
                "(%zu roots, %zu valid)\n",
                n, virt->size(), ms(t1 - t0), virt->size() / ms(t1 - t0) / 1000.0, best, found, valid);
    return best;
}

}  // namespace

int main() {
    if (const char* only = std::getenv("ZERKO_BENCH_N")) {
        run(std::atoi(only));
        return 0;
    }
    const double small = run(1000);
    const double large = run(10000);
    std::printf("search N=10000 / N=1000: %.1fx\n", large / small);
    return 0;
}
