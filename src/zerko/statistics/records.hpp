#pragma once
// The usage records that the statistics store collects. Each record kind has
// the category under which it is stored and a JSON view; the timestamp is a
// record's identity when stores of several processes are merged.
#include <optional>
#include <string>
#include <string_view>

#include "zerko/foundation/json_document.hpp"

namespace zerko::statistics::type {

using Document = JsonDocument;

/// A record with no content of its own: its timestamp is the moment its data is read.
class Record {
public:
    static constexpr std::string_view category = "";
    virtual ~Record() = default;
    /// The category under which the store keeps the record.
    virtual std::string_view key() const { return category; }
    /// {"timestamp": the wall-clock time}.
    virtual Document data() const;
};

/// One validation run.
class Validate final : public Record {
public:
    static constexpr std::string_view category = "validate";
    /// `project` is the project's file name in project mode, nothing otherwise.
    Validate(double timestamp, double speed, std::optional<std::string> project = std::nullopt)
        : timestamp_(timestamp), speed_(speed), project_(std::move(project)) {}
    std::string_view key() const override { return category; }
    /// {"project", "timestamp", "speed"}.
    Document data() const override;

private:
    double timestamp_;
    double speed_;
    std::optional<std::string> project_;
};

/// One run of one check with one parameter task.
class Checks final : public Record {
public:
    static constexpr std::string_view category = "checks";
    Checks(double timestamp, double speed, std::string name, std::string result)
        : timestamp_(timestamp), speed_(speed), name_(std::move(name)), result_(std::move(result)) {}
    std::string_view key() const override { return category; }
    /// {"name", "result", "timestamp", "speed"}.
    Document data() const override;

private:
    double timestamp_;
    double speed_;
    std::string name_;
    std::string result_;
};

/// One export run, whatever its outcome.
class Exported final : public Record {
public:
    static constexpr std::string_view category = "exported";
    std::string_view key() const override { return category; }
};

/// One feedback message sent.
class FeedbackSent final : public Record {
public:
    static constexpr std::string_view category = "feedback_sent";
    std::string_view key() const override { return category; }
};

}  // namespace zerko::statistics::type
