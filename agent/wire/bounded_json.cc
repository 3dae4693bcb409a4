#include "agent/wire/bounded_json.h"

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

namespace agent {

namespace {

// Takes a parser's events and builds the value, counting. Returning false ends the
// parser.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit Builder(const JsonLimits& limits) : limits_(limits) {}

  bool null() override { return add(nullptr); }
  bool boolean(bool value) override { return add(value); }
  bool number_integer(number_integer_t value) override { return add(value); }
  bool number_unsigned(number_unsigned_t value) override { return add(value); }
  // Whole numbers that no integer holds come here too; nobody converts one to an integer
  // without harm.
  bool number_float(number_float_t value, const string_t&) override {
    constexpr double kLargest = 9.2e18;
    if (!(value >= -kLargest && value <= kLargest)) return refuse("it holds too large a number");
    return add(value);
  }
  bool string(string_t& value) override { return add(std::move(value)); }
  bool binary(binary_t& value) override { return add(std::move(value)); }
  bool start_object(size_t) override { return open(nlohmann::json::object()); }
  bool start_array(size_t) override { return open(nlohmann::json::array()); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(string_t& value) override {
    name_ = std::move(value);
    return count();
  }
  bool parse_error(size_t, const std::string&, const nlohmann::json::exception&) override {
    return refuse("it is not JSON");
  }

  nlohmann::json take() { return std::move(root_); }
  const std::string& problem() const { return problem_; }

 private:
  bool refuse(const std::string& problem) {
    if (problem_.empty()) problem_ = problem;
    return false;
  }

  bool count() {
    if (++values_ <= limits_.values) return true;
    return refuse("it holds more than " + std::to_string(limits_.values) + " values");
  }

  // The place of the value that came; null when there are too many.
  nlohmann::json* place(nlohmann::json value) {
    if (!count()) return nullptr;
    if (open_.empty()) {
      root_ = std::move(value);
      return &root_;
    }
    nlohmann::json& parent = *open_.back();
    if (parent.is_object()) return &(parent[name_] = std::move(value));
    parent.push_back(std::move(value));
    return &parent.back();
  }

  bool add(nlohmann::json value) { return place(std::move(value)) != nullptr; }

  bool open(nlohmann::json value) {
    if (open_.size() == limits_.depth) {
      return refuse("it is nested more than " + std::to_string(limits_.depth) + " deep");
    }
    nlohmann::json* const opened = place(std::move(value));
    if (opened) open_.push_back(opened);
    return opened != nullptr;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  JsonLimits limits_;
  nlohmann::json root_;
  // Those that are not complete; a list grows at its end only, so none of them moves.
  std::vector<nlohmann::json*> open_;
  std::string name_;
  size_t values_ = 0;
  std::string problem_;
};

}  // namespace

nlohmann::json parseBounded(std::string_view text, const JsonLimits& limits) {
  Builder builder(limits);
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) {
    throw std::runtime_error(builder.problem().empty() ? "it is not JSON" : builder.problem());
  }
  return builder.take();
}

}  // namespace agent
