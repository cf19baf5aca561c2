#include "zerko/foundation/regex.hpp"

#include <pcre2.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <mutex>
#include <new>

#include "zerko/foundation/regex_cache.hpp"
#include "zerko/foundation/regex_template.hpp"
#include "zerko/foundation/regex_translate.hpp"
#include "zerko/foundation/utf8.hpp"

namespace zerko::regex {
namespace {

using detail::Translation;

// The work bound of one match call is this base (settable) plus a share that
// grows with the subject and the pattern: a pattern that does linear work
// needs on the order of (subject length x pattern length) steps, and must
// never trip the bound, while an exponential one on a short name still ends
// within a fraction of a millisecond.
constexpr std::uint32_t kDefaultMatchLimit = 100000;
constexpr std::uint64_t kWorkPerUnit = 4;
constexpr std::uint64_t kBaseHeapKiB = 32 * 1024;
constexpr std::uint64_t kHeapKiBPerByte = 1;

constexpr std::uint32_t kBaseOptions = PCRE2_UTF | PCRE2_UCP | PCRE2_ALT_CIRCUMFLEX |
                                       PCRE2_NEVER_BACKSLASH_C | PCRE2_MATCH_INVALID_UTF;

std::atomic<std::uint32_t> g_match_limit{kDefaultMatchLimit};

std::string pcre2_message(int code) {
    PCRE2_UCHAR buffer[256];
    const int n = pcre2_get_error_message(code, buffer, sizeof buffer);
    return n < 0 ? "error " + std::to_string(code) : std::string(reinterpret_cast<char*>(buffer), n);
}

pcre2_compile_context* compile_context() {
    static pcre2_compile_context* const context = [] {
        pcre2_compile_context* c = pcre2_compile_context_create(nullptr);
        if (c == nullptr) throw std::bad_alloc();
        pcre2_set_newline(c, PCRE2_NEWLINE_LF);
        return c;
    }();
    return context;
}

// ------------------------------------------------------ per-thread state

/// Match data, match context and JIT stack of one thread. Compiled code is
/// shared; everything a match writes lives here.
struct ThreadState {
    pcre2_match_data* data = nullptr;
    std::uint32_t pairs = 0;
    pcre2_match_context* context = nullptr;
    pcre2_jit_stack* jit_stack = nullptr;
    std::uint64_t limit = ~std::uint64_t{0};  // limit set in `context`; none yet
    std::uint64_t heap = ~std::uint64_t{0};   // heap limit (KiB) set in `context`

    ThreadState() = default;
    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;
    ~ThreadState() {
        pcre2_match_data_free(data);
        pcre2_match_context_free(context);
        pcre2_jit_stack_free(jit_stack);
    }

    void prepare(std::uint32_t need) {
        if (pairs < need) [[unlikely]] {
            const std::uint32_t size = std::max<std::uint32_t>(need, 16);
            pcre2_match_data* fresh = pcre2_match_data_create(size, nullptr);
            if (fresh == nullptr) throw std::bad_alloc();
            pcre2_match_data_free(data);
            data = fresh;
            pairs = size;
        }
        if (context == nullptr) [[unlikely]] {
            context = pcre2_match_context_create(nullptr);
            if (context == nullptr) throw std::bad_alloc();
            // The default JIT stack (32 KiB on the machine stack) is small for
            // long subjects; a thread's own stack grows on demand up to 1 MiB.
            jit_stack = pcre2_jit_stack_create(32 * 1024, 1024 * 1024, nullptr);
            if (jit_stack != nullptr) pcre2_jit_stack_assign(context, nullptr, jit_stack);
        }
    }

    /// Sets the bounds of a call over `bytes` of subject with a pattern of
    /// `pattern_bytes`: the work bound on top of its base, and the heap that
    /// the interpreter may take for backtracking (some 300 bytes a character
    /// for a capturing repeat), so that neither a long name nor a runaway
    /// pattern can take unbounded time or memory.
    void bound(std::uint64_t bytes, std::uint64_t pattern_bytes) {
        constexpr std::uint64_t kMax = std::numeric_limits<std::uint32_t>::max();
        const std::uint64_t work = std::min(
            g_match_limit.load(std::memory_order_relaxed) + kWorkPerUnit * (bytes + 1) * (pattern_bytes + 1), kMax);
        if (limit != work) {
            pcre2_set_match_limit(context, static_cast<std::uint32_t>(work));
            limit = work;
        }
        const std::uint64_t heap_kib = std::min(kBaseHeapKiB + bytes * kHeapKiBPerByte, kMax);
        if (heap != heap_kib) {
            pcre2_set_heap_limit(context, static_cast<std::uint32_t>(heap_kib));
            heap = heap_kib;
        }
    }
};

ThreadState& thread_state() {
    thread_local ThreadState state;
    return state;
}

struct Compiled {
    pcre2_code* code = nullptr;
    bool jit = false;
};

void free_compiled(Compiled& c) {
    pcre2_code_free(c.code);
    c.code = nullptr;
}

/// Compiles one form of a translated pattern; errors name the position in
/// the user's pattern.
Compiled compile_form(std::string_view user_pattern, const Translation& tr, const std::string& text,
                      std::uint32_t options, std::size_t source_shift) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    Compiled out;
    out.code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(text.data()), text.size(), options, &error,
                             &offset, compile_context());
    if (out.code == nullptr) {
        if (error == PCRE2_ERROR_NOMEMORY) throw std::bad_alloc();
        std::size_t position = RegexError::npos;
        if (offset >= source_shift && offset - source_shift < tr.source.size()) {
            position = tr.source[offset - source_shift];
        } else if (offset >= source_shift) {
            position = foundation::utf8_length(user_pattern);
        }
        detail::raise_invalid(user_pattern, pcre2_message(error), position);
    }
    // JIT is an optimisation: where it is unavailable the interpreter runs.
    out.jit = pcre2_jit_compile(out.code, PCRE2_JIT_COMPLETE) == 0;
    return out;
}

[[noreturn]] void raise_match_error(const std::string& pattern, int rc) {
    switch (rc) {
        case PCRE2_ERROR_MATCHLIMIT:
        case PCRE2_ERROR_DEPTHLIMIT:
        case PCRE2_ERROR_HEAPLIMIT:
        case PCRE2_ERROR_JIT_STACKLIMIT:
            throw RegexError("regular expression exceeded its work limit: " + pattern);
        case PCRE2_ERROR_NOMEMORY:
            throw std::bad_alloc();
        default:
            throw RegexError("regular expression failed (" + pcre2_message(rc) + "): " + pattern);
    }
}

std::string_view ovector_group(std::string_view subject, const PCRE2_SIZE* ov, int rc, std::size_t index,
                               bool& set) {
    set = static_cast<int>(index) < rc && ov[2 * index] != PCRE2_UNSET;
    return set ? subject.substr(ov[2 * index], ov[2 * index + 1] - ov[2 * index]) : std::string_view{};
}

}  // namespace

// ------------------------------------------------------------ Regex::Impl

struct Regex::Impl {
    std::uint32_t options = 0;
    std::uint32_t pairs = 1;  // ovector pairs: groups + 1
    Translation translation;  // kept to place errors of the lazily compiled forms
    Compiled search;          // unanchored: search, sub, split, findall
    // The anchored forms are compiled on first use, as most expressions are
    // only ever used one way.
    mutable std::atomic<const Compiled*> anchored{nullptr};
    mutable std::atomic<const Compiled*> full{nullptr};
    mutable Compiled anchored_store, full_store;
    mutable std::mutex lazy;

    ~Impl() {
        free_compiled(search);
        free_compiled(anchored_store);
        free_compiled(full_store);
    }

    const Compiled& anchored_form(const Regex& re) const {
        if (const Compiled* c = anchored.load(std::memory_order_acquire)) [[likely]] return *c;
        std::lock_guard lock(lazy);
        if (anchored_store.code == nullptr) {
            anchored_store =
                compile_form(re.pattern_, translation, translation.pattern, options | PCRE2_ANCHORED, 0);
        }
        anchored.store(&anchored_store, std::memory_order_release);
        return anchored_store;
    }

    const Compiled& full_form(const Regex& re) const {
        if (const Compiled* c = full.load(std::memory_order_acquire)) [[likely]] return *c;
        std::lock_guard lock(lazy);
        if (full_store.code == nullptr) {
            // (?:...)\z keeps alternatives backtracking until one reaches the end.
            full_store = compile_form(re.pattern_, translation, "(?:" + translation.pattern + ")\\z",
                                      options | PCRE2_ANCHORED, 3);
        }
        full.store(&full_store, std::memory_order_release);
        return full_store;
    }

    /// One match call: the number of pairs set (> 0), 0 for no match.
    int run(const Regex& re, const Compiled& c, std::string_view subject, std::size_t pos,
            std::uint32_t match_options, ThreadState& ts) const {
        const auto* s = reinterpret_cast<PCRE2_SPTR>(subject.data() ? subject.data() : "");
        const std::size_t n = subject.size();
        ts.bound(n - pos, translation.pattern.size());
        int rc = c.jit ? pcre2_jit_match(c.code, s, n, pos, match_options, ts.data, ts.context)
                       : pcre2_match(c.code, s, n, pos, match_options, ts.data, ts.context);
        if (rc == PCRE2_ERROR_JIT_STACKLIMIT) {
            // A long subject can need more machine stack than the JIT stack
            // holds; the interpreter keeps its backtracking state on the heap.
            rc = pcre2_match(c.code, s, n, pos, match_options | PCRE2_NO_JIT, ts.data, ts.context);
        }
        if (rc > 0) [[likely]] return rc;
        if (rc == PCRE2_ERROR_NOMATCH) return 0;
        if (rc == 0) return static_cast<int>(pairs);  // cannot happen: data is sized for all groups
        raise_match_error(re.pattern_, rc);
    }

    Match make_match(const Regex& re, std::string_view subject, int rc, const ThreadState& ts) const {
        Match m;
        m.subject_.assign(subject);
        const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(ts.data);
        m.spans_.resize(pairs);
        for (std::size_t i = 0; i < pairs; ++i) {
            if (static_cast<int>(i) < rc && ov[2 * i] != PCRE2_UNSET) {
                m.spans_[i] = {ov[2 * i], ov[2 * i + 1]};
            } else {
                m.spans_[i] = {std::string::npos, std::string::npos};
            }
        }
        m.names_ = re.names_;
        return m;
    }

    /// Python's scanning loop (sub, split, findall): after an empty match the
    /// next one may not be empty at the same place, but may start there.
    template <class OnMatch>
    void scan(const Regex& re, std::string_view subject, std::size_t limit, OnMatch&& on_match) const {
        ThreadState& ts = thread_state();
        ts.prepare(pairs);
        std::size_t pos = 0, n = 0;
        std::uint32_t match_options = 0;
        while ((limit == 0 || n < limit) && pos <= subject.size()) {
            const int rc = run(re, search, subject, pos, match_options, ts);
            if (rc == 0) break;
            const PCRE2_SIZE* ov = pcre2_get_ovector_pointer(ts.data);
            on_match(ov, rc);
            ++n;
            match_options = ov[0] == ov[1] ? PCRE2_NOTEMPTY_ATSTART : 0;
            pos = ov[1];
        }
    }
};

// ----------------------------------------------------------------- Match

bool Match::has(std::size_t index) const {
    return index < spans_.size() && spans_[index].first != std::string::npos;
}

std::pair<std::size_t, std::size_t> Match::span(std::size_t index) const {
    if (index >= spans_.size()) throw ValueError("no such group: " + std::to_string(index));
    return spans_[index];
}

std::string Match::group(std::size_t index) const {
    const auto [b, e] = span(index);
    return b == std::string::npos ? std::string() : subject_.substr(b, e - b);
}

std::string Match::group(std::string_view name) const {
    for (const auto& [n, index] : names_) {
        if (n == name) return group(index);
    }
    throw ValueError("no such group: " + std::string(name));
}

std::vector<std::pair<std::string, std::optional<std::string>>> Match::named() const {
    std::vector<std::pair<std::string, std::optional<std::string>>> out;
    out.reserve(names_.size());
    for (const auto& [name, index] : names_) {
        out.emplace_back(name, has(index) ? std::optional<std::string>(group(index)) : std::nullopt);
    }
    return out;
}

// ----------------------------------------------------------------- Regex

Regex::~Regex() = default;

RegexPtr Regex::compile(std::string_view pattern, unsigned flags) {
    flags &= IgnoreCase | Multiline | DotAll | Verbose;
    detail::RegexCache& cache = detail::RegexCache::instance();
    if (RegexPtr known = cache.find(pattern, flags)) return known;

    // Compile outside the lock; a racing thread's result wins if it got there first.
    std::shared_ptr<Regex> re(new Regex());
    re->pattern_.assign(pattern);
    auto impl = std::make_unique<Impl>();
    impl->translation = detail::translate(pattern, (flags & Verbose) != 0, (flags & IgnoreCase) != 0);
    impl->options = kBaseOptions | ((flags & IgnoreCase) ? PCRE2_CASELESS : 0) |
                    ((flags & Multiline) ? PCRE2_MULTILINE : 0) | ((flags & DotAll) ? PCRE2_DOTALL : 0);
    impl->pairs = static_cast<std::uint32_t>(impl->translation.groups + 1);
    impl->search = compile_form(pattern, impl->translation, impl->translation.pattern, impl->options, 0);
    re->groups_ = impl->translation.groups;
    re->names_ = impl->translation.names;
    re->impl_ = std::move(impl);
    return cache.insert(pattern, flags, std::move(re));
}

void Regex::set_match_limit(std::uint32_t limit) { g_match_limit.store(limit, std::memory_order_relaxed); }

std::uint32_t Regex::match_limit() { return g_match_limit.load(std::memory_order_relaxed); }

std::size_t Regex::cache_size() { return detail::RegexCache::instance().size(); }

std::optional<Match> Regex::match(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    pos = std::min(pos, subject.size());
    const int rc = impl_->run(*this, impl_->anchored_form(*this), subject, pos, 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

std::optional<Match> Regex::fullmatch(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    const int rc = impl_->run(*this, impl_->full_form(*this), subject, std::min(pos, subject.size()), 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

std::optional<Match> Regex::search(std::string_view subject, std::size_t pos) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    const int rc = impl_->run(*this, impl_->search, subject, std::min(pos, subject.size()), 0, ts);
    if (rc == 0) return std::nullopt;
    return impl_->make_match(*this, subject, rc, ts);
}

bool Regex::matches(std::string_view subject) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    return impl_->run(*this, impl_->anchored_form(*this), subject, 0, 0, ts) != 0;
}

bool Regex::found_in(std::string_view subject) const {
    ThreadState& ts = thread_state();
    ts.prepare(impl_->pairs);
    return impl_->run(*this, impl_->search, subject, 0, 0, ts) != 0;
}

std::string Regex::sub(std::string_view repl, std::string_view subject, std::size_t count) const {
    const bool plain = repl.find('\\') == std::string_view::npos;
    const std::vector<detail::TemplatePart> parts =
        plain ? std::vector<detail::TemplatePart>{} : detail::parse_template(repl, groups_, names_);
    std::string out;
    out.reserve(subject.size());
    std::size_t last = 0;
    impl_->scan(*this, subject, count, [&](const PCRE2_SIZE* ov, int rc) {
        out.append(subject.substr(last, ov[0] - last));
        if (plain) {
            out.append(repl);
        } else {
            for (const detail::TemplatePart& part : parts) {
                if (part.group < 0) {
                    out.append(part.literal);
                } else {
                    bool set = false;
                    out.append(ovector_group(subject, ov, rc, static_cast<std::size_t>(part.group), set));
                }
            }
        }
        last = ov[1];
    });
    out.append(subject.substr(last));
    return out;
}

std::vector<std::optional<std::string>> Regex::split(std::string_view subject, std::size_t maxsplit) const {
    std::vector<std::optional<std::string>> out;
    std::size_t last = 0;
    impl_->scan(*this, subject, maxsplit, [&](const PCRE2_SIZE* ov, int rc) {
        out.emplace_back(std::string(subject.substr(last, ov[0] - last)));
        for (std::size_t g = 1; g <= groups_; ++g) {
            bool set = false;
            const std::string_view text = ovector_group(subject, ov, rc, g, set);
            out.emplace_back(set ? std::optional<std::string>(std::string(text)) : std::nullopt);
        }
        last = ov[1];
    });
    out.emplace_back(std::string(subject.substr(last)));
    return out;
}

std::vector<std::string> Regex::findall(std::string_view subject) const {
    std::vector<std::string> out;
    impl_->scan(*this, subject, 0, [&](const PCRE2_SIZE* ov, int) {
        out.emplace_back(subject.substr(ov[0], ov[1] - ov[0]));
    });
    return out;
}

// ------------------------------------------------------- module helpers

std::optional<Match> match(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->match(subject);
}

std::optional<Match> search(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->search(subject);
}

std::optional<Match> fullmatch(std::string_view pattern, std::string_view subject, unsigned flags) {
    return Regex::compile(pattern, flags)->fullmatch(subject);
}

std::string sub(std::string_view pattern, std::string_view repl, std::string_view subject, std::size_t count,
                unsigned flags) {
    return Regex::compile(pattern, flags)->sub(repl, subject, count);
}

std::vector<std::optional<std::string>> split(std::string_view pattern, std::string_view subject,
                                              std::size_t maxsplit, unsigned flags) {
    return Regex::compile(pattern, flags)->split(subject, maxsplit);
}

std::string escape(std::string_view text) {
    static constexpr std::string_view kSpecial = "()[]{}?*+-|^$\\.&~# \t\n\r\v\f";
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (char c : text) {
        if (kSpecial.find(c) != std::string_view::npos) out += '\\';
        out += c;
    }
    return out;
}

}  // namespace zerko::regex
