#include "orvexa/model/workflow/model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <utility>

#include "orvexa/common/ordered_map.h"
#include "orvexa/common/text.h"
#include "orvexa/model/mask_operations/registry.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/result_operations/registry.h"
#include "orvexa/model/workflow/parameter_files.h"

namespace orvexa::model {

namespace {

using common::did_you_mean;
using common::kind_text;
using common::scalar_text;

[[noreturn]] void refuse(const std::string& sentence) {
  throw std::invalid_argument(sentence);
}

std::string title_from(const Value& value) {
  if (value.is_structured()) refuse(fmt::format("The workflow's title must be a text; it is {}.", kind_text(value)));
  return value.is_null() ? std::string() : scalar_text(value);
}

/// Above what this program writes. Compared as what it is: the JSON library's own comparison takes 2^63 and above for
/// negative.
bool is_newer(const Value& format) {
  if (format.is_number_unsigned()) return std::cmp_greater(format.get<std::uint64_t>(), workflow_format);
  return format.is_number_integer() && std::cmp_greater(format.get<std::int64_t>(), workflow_format);
}

/// An older workflow becomes one of this program's format; what this program does not know stays as it is.
Value format_from(const Value& value) {
  return value.is_number_integer() && !is_newer(value) ? Value(workflow_format) : value;
}

/// What people call it, counted from 1: "mask step 2", "result operation 1".
std::string step_name(const StepPlace& place) {
  return fmt::format("{} {}", place.is_mask ? "mask step" : "result operation", place.index + 1);
}

template <typename Config>
Config step_from(const Value& entry, const std::string& name) {
  if (!entry.is_object()) {
    refuse(
        fmt::format("The workflow's {} must be a map with \"op\" and \"params\"; it is {}.", name, kind_text(entry)));
  }
  Config step;
  bool has_op = false;
  for (const auto& [key, value] : entry.items()) {
    if (key == "op") {
      if (!value.is_string()) {
        refuse(fmt::format("The \"op\" of the workflow's {} must be a text; it is {}.", name, kind_text(value)));
      }
      step.op = value.template get<std::string>();
      has_op = true;
    } else if (key == "params") {
      step.params = value;
    } else {
      step.others[key] = value;
    }
  }
  if (!has_op) refuse(fmt::format("The workflow's {} has no \"op\", the key of its operation.", name));
  return step;
}

template <typename Config>
std::vector<Config> steps_from(const Value& list, std::string_view key) {
  constexpr bool is_mask = std::is_same_v<Config, MaskOperationConfig>;
  std::vector<Config> steps;
  if (list.is_null()) return steps;  // a key with nothing behind it: all its steps are commented out
  if (!list.is_array()) {
    refuse(fmt::format("The workflow's \"{}\" must be a list of steps; it is {}.", key, kind_text(list)));
  }
  steps.reserve(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) {
    steps.push_back(step_from<Config>(list[i], step_name({.is_mask = is_mask, .index = i})));
  }
  return steps;
}

/// The entries of a workflow, in the order in which they are written.
struct Entry {
  std::function<void(Workflow&, const Value&)> read;
  std::function<std::optional<Value>(const Workflow&)> write;
};

template <typename Config>
Value list_of(const std::vector<Config>& steps) {
  Value list = Value::array();
  for (const OperationConfig& step : steps) {
    Value entry = {{"op", step.op}, {"params", step.params}};
    if (step.others.is_object()) entry.update(step.others);
    list.push_back(std::move(entry));
  }
  return list;
}

const common::OrderedMap<Entry>& known_entries() {
  static const common::OrderedMap<Entry> known = {
      {"format",
       {.read = [](Workflow& workflow, const Value& value) { workflow.format = format_from(value); },
        .write = [](const Workflow& workflow) { return workflow.format; }}},
      {"title",
       {.read = [](Workflow& workflow, const Value& value) { workflow.title = title_from(value); },
        .write = [](const Workflow& workflow) { return Value(workflow.title); }}},
      {"mask_operations",
       {.read =
            [](Workflow& workflow, const Value& value) {
              workflow.mask_operations = steps_from<MaskOperationConfig>(value, "mask_operations");
            },
        .write = [](const Workflow& workflow) { return list_of(workflow.mask_operations); }}},
      {"result_operations",
       {.read =
            [](Workflow& workflow, const Value& value) {
              workflow.result_operations = steps_from<ResultOperationConfig>(value, "result_operations");
            },
        .write = [](const Workflow& workflow) { return list_of(workflow.result_operations); }}},
      {"outputs",
       {.read = [](Workflow& workflow, const Value& value) { workflow.outputs = value; },
        .write = [](const Workflow& workflow) { return workflow.outputs; }}},
  };
  return known;
}

std::string no_such_entry(const std::string& key) {
  std::vector<std::string> names;
  for (const auto& [name, unused] : known_entries()) names.push_back(name);
  return fmt::format("A workflow has no entry \"{}\"{}.", key, did_you_mean(key, names));
}

/// The one reader behind both doors.
Workflow read_workflow(const Value& entries) {
  if (entries.is_null()) refuse("The document is empty: a workflow is a map with \"title\" and lists of steps.");
  if (!entries.is_object()) {
    refuse(
        fmt::format("A workflow is a map with \"title\" and lists of steps; this document is {}.", kind_text(entries)));
  }
  const auto& known = known_entries();
  const auto format = entries.find("format");
  const bool may_have_more = format != entries.end() && is_newer(*format);
  Workflow workflow;
  for (const auto& [key, value] : entries.items()) {
    if (const auto entry = known.find(key); entry != known.end()) {
      entry->second.read(workflow, value);
    } else if (may_have_more) {
      workflow.others[key] = value;
    } else {
      refuse(no_such_entry(key));
    }
  }
  return workflow;
}

// The check

class Checker {
 public:
  explicit Checker(const Workflow& workflow) : _workflow(workflow) {}

  std::vector<WorkflowProblem> run() {
    check_format();
    for (std::size_t i = 0; i < _workflow.mask_operations.size(); ++i) check_mask_step(i);
    for (std::size_t i = 0; i < _workflow.result_operations.size(); ++i) check_result_step(i);
    check_files();
    check_outputs();
    for (const auto& [key, value] : _workflow.others.items()) report({key}, no_such_entry(key));
    return std::move(_problems);
  }

 private:
  struct Place {
    std::string name;
    std::optional<StepPlace> step = std::nullopt;
  };

  void check_format() {
    const Value& format = _workflow.format;
    if (is_newer(format)) {
      report({"format"}, fmt::format("The workflow has format {}; this program reads format {} and older.",
                                     scalar_text(format), workflow_format));
    } else if (!format.is_number_integer()) {
      report({"format"}, fmt::format("The workflow's format must be a whole number; it is {}.",
                                     format.is_number() ? scalar_text(format) : kind_text(format)));
    }
  }

  void check_mask_step(std::size_t i) {
    const MaskOperationConfig& step = _workflow.mask_operations[i];
    const Place place = place_of({.is_mask = true, .index = i}, step);
    const MaskOperationInfo* const info = known([&] { return &get_mask_operation(step.op); }, place);
    if (info == nullptr) return;
    if (i == 0 && info->needs_mask) {
      report(place, fmt::format("{} works on a mask and cannot be the first step.", step.op));
    }
    check_params(*info, info->all_parameters(), step, place);
  }

  void check_result_step(std::size_t i) {
    const auto& steps = _workflow.result_operations;
    const ResultOperationConfig& step = steps[i];
    const Place place = place_of({.is_mask = false, .index = i}, step);
    const auto first = std::find_if(steps.begin(), steps.end(), [&](const auto& other) { return other.op == step.op; });
    if (const auto first_index = static_cast<std::size_t>(first - steps.begin()); first_index < i) {
      report(place,
             fmt::format("{} stands twice, first as {}; a result operation stands once, its bands, indices and methods "
                         "are lists.",
                         step.op, step_name({.is_mask = false, .index = first_index})));
    }
    const ResultOperationInfo* const info = known([&] { return &get_result_operation(step.op); }, place);
    if (info != nullptr) check_params(*info, info->parameters, step, place);
  }

  /// What `find` gives, or null after a report of why it refused.
  template <typename Find>
  auto known(const Find& find, const Place& place) -> decltype(find()) {
    try {
      return find();
    } catch (const std::invalid_argument& failure) {
      report(place, failure.what());
      return nullptr;
    }
  }

  template <typename Info>
  void check_params(const Info& info, const ParameterList& parameters, const OperationConfig& step,
                    const Place& place) {
    if (!step.params.is_object()) {
      guarded(place, [&] { static_cast<void>(info()->validate_params(step.params)); });
      return;
    }
    // One parameter at a time, so that all that are wrong are named; then all together, for what must fit.
    const std::size_t before = _problems.size();
    for (const auto& [key, value] : step.params.items()) {
      Value alone = Value::object();
      alone[key] = value;
      guarded(place, [&] { static_cast<void>(validate_parameters(step.op, parameters, alone)); });
    }
    if (_problems.size() > before) return;
    guarded(place, [&] { static_cast<void>(info()->validate_params(step.params)); });
  }

  template <typename Check>
  void guarded(const Place& place, const Check& check) {
    try {
      check();
    } catch (const std::invalid_argument& failure) {
      report(place, failure.what());
    }
  }

  void check_files() {
    for (const ParameterFile& file : parameter_files(_workflow)) {
      const auto problem = missing_file_problem(file);
      if (!problem) continue;
      const std::size_t index = file.place.index;
      const OperationConfig& step = file.place.is_mask
                                        ? static_cast<const OperationConfig&>(_workflow.mask_operations[index])
                                        : _workflow.result_operations[index];
      report(place_of(file.place, step), fmt::format("{}: parameter \"{}\" is \"{}\", but {}.", step.op, file.parameter,
                                                     common::to_valid_utf8(file.written), *problem));
    }
  }

  void check_outputs() {
    if (!_workflow.outputs) return;
    static const std::vector<std::string> known_outputs = {"masks", "overlays", "images", "numbers"};
    const std::string allowed = common::joined(known_outputs, ", ");
    if (!_workflow.outputs->is_array()) {
      report({"outputs"},
             fmt::format("\"outputs\" must be a list of {}; it is {}.", allowed, kind_text(*_workflow.outputs)));
      return;
    }
    for (const Value& output : *_workflow.outputs) {
      if (!output.is_string()) {
        report({"outputs"},
               fmt::format("\"outputs\" must hold names ({}); one of them is {}.", allowed, kind_text(output)));
        continue;
      }
      const auto& wanted = output.get_ref<const std::string&>();
      if (std::find(known_outputs.begin(), known_outputs.end(), wanted) == known_outputs.end()) {
        report({"outputs"}, fmt::format("There is no output \"{}\"{}; there are {}.", wanted,
                                        did_you_mean(wanted, known_outputs), allowed));
      }
    }
  }

  static Place place_of(const StepPlace& place, const OperationConfig& step) {
    return {.name = fmt::format("{} ({})", step_name(place), step.op), .step = place};
  }

  void report(const Place& where, const std::string& text) {
    _problems.push_back({.step = where.name, .text = text, .place = where.step});
  }

  const Workflow& _workflow;
  std::vector<WorkflowProblem> _problems;
};

}  // namespace

Workflow::Workflow(const Value& entries) : Workflow(read_workflow(entries)) {}

Workflow Workflow::from_dict(const Value& map) {
  return read_workflow(map);
}

Value Workflow::to_dict() const {
  Value map = Value::object();
  for (const auto& [key, entry] : known_entries()) {
    if (auto value = entry.write(*this)) map[key] = std::move(*value);
  }
  map.update(others);
  return map;
}

bool operator==(const Workflow& a, const Workflow& b) {
  return a.format == b.format && a.title == b.title && a.mask_operations == b.mask_operations &&
         a.result_operations == b.result_operations && a.outputs == b.outputs && a.others == b.others;
}

std::shared_ptr<Workflow> new_workflow(const std::string& title) {
  auto workflow = std::make_shared<Workflow>();
  workflow->title = title;
  return workflow;
}

MaskOperationConfig mask_op(const std::string& op_name, const Value& params) {
  MaskOperationConfig step;
  step.op = op_name;
  step.params = params;
  return step;
}

ResultOperationConfig result_op(const std::string& key, const Value& params) {
  ResultOperationConfig step;
  step.op = key;
  step.params = params;
  return step;
}

std::vector<WorkflowProblem> check_workflow(const Workflow& workflow) {
  return Checker(workflow).run();
}

}  // namespace orvexa::model
