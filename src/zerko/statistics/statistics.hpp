#pragma once
// The statistics store: usage records kept in one JSON file (statistics.json)
// that several processes share. Writing merges what is in memory into what
// the file holds, without duplicates, instead of replacing it; after the
// server has accepted the records they are deleted locally.
#include <array>
#include <mutex>
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

#include "zerko/statistics/http.hpp"
#include "zerko/statistics/records.hpp"

namespace zerko::foundation {
class Environment;
}

namespace zerko::statistics {

class Statistics {
public:
    /// The format version of the file.
    static constexpr int version = 1;
    /// The categories of records, in the order of the document.
    static constexpr std::array<std::string_view, 4> categories{
        type::Validate::category, type::Checks::category, type::Exported::category, type::FeedbackSent::category};

    /// Reads environment.get_statistics_file(); a missing, corrupted or
    /// incompatible file gives an empty store (never raises for the file).
    explicit Statistics(const foundation::Environment& environment);
    /// The same for a given file path.
    explicit Statistics(std::string path);
    Statistics(const Statistics&) = delete;
    Statistics& operator=(const Statistics&) = delete;

    /// Appends the record's data to the list of its category; a record of
    /// an unknown category goes nowhere. Raises TypeError when the category
    /// holds something other than a list.
    void add(const type::Record& record);
    void add(std::string_view key, Document data);

    /// Merges the records into the file under the access queue (or, with
    /// `clear`, empties the file's document). Errors are logged, never raised.
    void write(bool clear = false);

    /// A request holding a copy of the document.
    HttpRequest create_http_request(std::string username) const;
    /// When the server accepted: logs "Statistics Sent" and, with `clear`,
    /// empties the lists in memory and the file.
    void accept_http_response(const HttpResponse& response, bool clear = true);

    /// A copy of the document in memory.
    Document data() const;
    const std::string& path() const noexcept { return path_; }

    /// What the file holds, as the store takes it at construction.
    Document read() const;
    /// Empties every list of the document; "version" stays.
    void clear();
    /// Merges the records of `data` into `json_data`: per category, records
    /// are identified by their "timestamp", and a record of `data` replaces
    /// one of `json_data` with the same timestamp. Keys named "version" (in
    /// any case) are left alone. Raises for a document of another shape.
    static void extend(Document& json_data, const Document& data);

private:
    void ensure_attributes();

    mutable std::mutex mutex_edit_;
    std::string path_;
    Document data_;
};

}  // namespace zerko::statistics
