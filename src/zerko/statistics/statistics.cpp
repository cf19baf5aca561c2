#include "zerko/statistics/statistics.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <filesystem>
#include <unordered_map>
#include <vector>

#include "zerko/foundation/environment.hpp"
#include "zerko/file/access_queue.hpp"
#include "zerko/file/utilities.hpp"
#include "zerko/foundation/errors.hpp"
#include "zerko/foundation/logger.hpp"
#include "zerko/foundation/naming.hpp"

namespace zerko::statistics {

using foundation::Logger;

namespace {

// The identity of a timestamp as a table key: numbers that compare equal
// share one key whatever their type (1, 1.0 and true alike).
std::string identity(const Document& timestamp) {
    switch (timestamp.type()) {
        case Document::value_t::boolean: return timestamp.get<bool>() ? "n:1" : "n:0";
        case Document::value_t::number_integer: return "n:" + std::to_string(timestamp.get<std::int64_t>());
        case Document::value_t::number_unsigned: return "n:" + std::to_string(timestamp.get<std::uint64_t>());
        case Document::value_t::number_float: {
            const double v = timestamp.get<double>();
            if (std::trunc(v) == v && std::fabs(v) < 9.2e18) return "n:" + std::to_string(static_cast<std::int64_t>(v));
            return "f:" + timestamp.dump();
        }
        case Document::value_t::string: return "s:" + timestamp.get<std::string>();
        case Document::value_t::null: return "null";
        default: throw TypeError("unhashable timestamp: " + timestamp.dump());
    }
}

// Records of one category keyed by timestamp, in order of first appearance.
struct TimedBucket {
    std::vector<Document> records;
    std::unordered_map<std::string, std::size_t> index;

    void put(const Document& record) {
        if (!record.is_object()) throw TypeError("statistics record is not an object: " + record.dump());
        const auto found = record.find("timestamp");
        if (found == record.end()) throw ValueError("statistics record without timestamp: " + record.dump());
        auto [it, fresh] = index.try_emplace(identity(*found), records.size());
        if (fresh) records.push_back(record);
        else records[it->second] = record;
    }
};

using TimedTable = std::vector<std::pair<std::string, TimedBucket>>;

bool is_version_key(std::string_view key) {
    if (key.size() != 7) return false;
    std::string lower(key);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    return lower == "version";
}

TimedBucket& timed_bucket(TimedTable& table, const std::string& category) {
    for (auto& [name, bucket] : table) {
        if (name == category) return bucket;
    }
    return table.emplace_back(category, TimedBucket{}).second;
}

TimedTable timed_table(const Document& json_data) {
    if (!json_data.is_object()) throw TypeError("statistics document is not an object");
    TimedTable table;
    for (const auto& [key, value] : json_data.items()) {
        if (is_version_key(key)) continue;
        auto& bucket = timed_bucket(table, key);
        if (value.is_array()) {
            for (const auto& record : value) bucket.put(record);
        } else if (!((value.is_object() || value.is_string()) && value.empty())) {
            throw TypeError("statistics category \"" + key + "\" holds no list of records");
        }
    }
    return table;
}

}  // namespace

Statistics::Statistics(const foundation::Environment& environment) : Statistics(environment.get_statistics_file()) {}

Statistics::Statistics(std::string path) : path_(std::move(path)) {
    data_ = read();
    ensure_attributes();
}

Document Statistics::read() const {
    std::error_code ec;
    if (!std::filesystem::exists(path_, ec)) return Document::object();
    const Document data = file::read_shared(path_, "Statistics");
    // A file of a newer format is refused; an older one is taken as it stands.
    const auto found = data.find("version");
    const Document file_version = found == data.end() ? Document(0) : *found;
    if (!file_version.is_number() || file_version.get<double>() > version) {
        Logger::warning(foundation::format("Incompatible Statistics Version - {}", {path_}));
        return Document::object();
    }
    return data;
}

void Statistics::ensure_attributes() {
    for (const auto category : categories) {
        const std::string key(category);
        if (!data_.contains(key)) data_[key] = Document::array();
    }
    if (!data_.contains("version")) data_["version"] = version;
}

void Statistics::add(const type::Record& record) { add(record.key(), record.data()); }

void Statistics::add(std::string_view key, Document data) {
    std::lock_guard lock(mutex_edit_);
    const auto found = data_.find(std::string(key));
    if (found == data_.end()) return;  // an unknown category goes nowhere
    if (!found->is_array()) throw TypeError("statistics category \"" + std::string(key) + "\" holds no list");
    found->push_back(std::move(data));
}

void Statistics::write(bool clear) {
    std::lock_guard lock(mutex_edit_);
    try {
        file::update_shared(path_, "Statistics", [&](Document& document) {
            try {
                timed_table(document);
            } catch (const Exception&) {
                // A category that holds no list of records would fail every
                // later write too: the file goes aside like a broken one.
                file::quarantine(path_, "Statistics");
                document = Document::object();
            }
            if (clear) document.clear();
            else extend(document, data_);
        });
    } catch (const std::exception&) {
        Logger::exception(std::current_exception());
    }
}

void Statistics::extend(Document& json_data, const Document& data) {
    TimedTable table = timed_table(json_data);
    for (auto& [category, bucket] : timed_table(data)) {
        auto& target = timed_bucket(table, category);
        for (const auto& record : bucket.records) target.put(record);
    }
    for (auto& [category, bucket] : table) {
        Document records = Document::array();
        for (auto& record : bucket.records) records.push_back(std::move(record));
        json_data[category] = std::move(records);
    }
}

HttpRequest Statistics::create_http_request(std::string username) const {
    Document contents;
    {
        std::lock_guard lock(mutex_edit_);
        contents = data_;
    }
    return HttpRequest(std::move(username), std::move(contents));
}

void Statistics::accept_http_response(const HttpResponse& response, bool clear) {
    if (!response.accepted()) return;
    Logger::debug("Statistics Sent");
    if (clear) {
        this->clear();
        write(true);
        Logger::debug("Clear Local Statistics");
    }
}

void Statistics::clear() {
    std::lock_guard lock(mutex_edit_);
    for (auto& [key, value] : data_.items()) {
        if (value.is_array()) value.clear();
    }
}

Document Statistics::data() const {
    std::lock_guard lock(mutex_edit_);
    return data_;
}

}  // namespace zerko::statistics
