#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "orvexa/model/image_source.h"
#include "orvexa/model/mask.h"
#include "orvexa/model/operation_base.h"
#include "orvexa/model/run_context.h"

namespace orvexa::model {

class MaskOperation;

/// The class of a mask operation as a value: everything there is to know about it without running it. Calling it makes
/// an instance.
struct MaskOperationInfo {
  std::string key;           ///< registry key; never changes once files hold it
  std::string display_name;  ///< for menus; may change
  std::string category = {};
  std::string summary = {};       ///< one sentence
  std::string description = {};   ///< definition, formula, units, edge behaviour
  std::string source = {};        ///< published source of the definition
  ParameterList parameters = {};  ///< its own ones; `reset_mask_chain` is common to all

  /// A region of interest: previewed without the chain, and its result becomes the bounds of growing steps.
  bool _is_roi_operation = false;
  /// Whether a preview takes the chain; absent = the negation of `_is_roi_operation`.
  std::optional<bool> _requires_accumulated_mask = std::nullopt;
  /// It may grow: its result is kept inside the incoming mask's bounds rather than inside the mask itself.
  bool _preview_unconstrained = false;
  /// It works on a mask and cannot run without one (morphology, filters of regions).
  bool needs_mask = false;
  /// Whether it makes regions with these checked parameters; absent = it never does.
  std::function<bool(const Value& params)> makes_regions = {};
  /// Throws the std::runtime_error that says what a capture lacks for checked parameters; absent = any capture will do.
  /// For menus, which say why an operation cannot be used; a run finds out by itself.
  std::function<void(const ImageSource& source, const Value& params)> check_capture = {};

  std::function<std::unique_ptr<MaskOperation>()> make;

  [[nodiscard]] const std::string& get_display_name() const { return display_name; }
  [[nodiscard]] Value get_default_params() const;
  /// `parameters` and the ones common to every mask operation.
  [[nodiscard]] ParameterList all_parameters() const;
  /// A new instance that knows this description.
  [[nodiscard]] std::unique_ptr<MaskOperation> operator()() const;
};

/// One run of a mask operation. It may hold what it made on the way (overlay, note).
class MaskOperation {
 public:
  virtual ~MaskOperation() = default;

  struct Input {
    const ImageSource& image_stack;
    std::optional<Mask> current_mask = std::nullopt;  ///< absent = every pixel counts
    Value params = Value::object();
  };

  /// The whole new accumulated mask: parameters are completed and checked, the operation computes, and its result is
  /// narrowed to the incoming mask (a growing operation: to the incoming mask's bounds). Labels and bounds of the
  /// incoming mask are carried on unless the operation made its own; a region-of-interest operation's result becomes
  /// the bounds. Pixels that a growing operation adds where no region is are counted in the note. With
  /// `reset_mask_chain` true, an operation that does not need a mask takes the incoming one for
  /// absent.
  /// @throws std::invalid_argument for parameters; std::runtime_error with a sentence for anything else that is wrong.
  [[nodiscard]] std::optional<Mask> apply(const Input& input);

  /// Completed and checked parameters.
  [[nodiscard]] Value validate_params(const Value& params) const;
  [[nodiscard]] const std::string& get_display_name() const { return info().display_name; }
  [[nodiscard]] const MaskOperationInfo& info() const { return *_info; }
  void set_context(RunContext context) { _context = std::move(context); }

  /// What the step did, 8-bit RGB, black where nothing was drawn; set by a run, absent for most operations.
  std::optional<Image> viz_overlay;
  /// Set to false before a run by who will not look at `viz_overlay`: drawing takes longer than many a step.
  bool wants_overlay = true;
  /// A remark about the run for the results, such as the level that was found. One that says why pixels are missing
  /// begins with a code of small letters and underscores, such as "no_contrast: ...".
  std::string note;
  /// For the record of the run: what a band was chosen for ("ndvi", "band") to its name or a list of names.
  Value chosen_bands = Value::object();

 protected:
  /// @param current  the incoming mask or null; its pixels, bounds and regions may be looked at.
  /// @param params  completed and checked.
  [[nodiscard]] virtual std::optional<Mask> compute(const ImageSource& source, const Mask* current,
                                                    const Value& params) = 0;
  /// Checks between parameters (low <= high); throws std::invalid_argument with a sentence.
  virtual void check(const Value& params) const { static_cast<void>(params); }
  [[nodiscard]] const RunContext& context() const { return _context; }

 private:
  friend struct MaskOperationInfo;
  void note_added_pixels(const Mask& before, const Mask& after);
  const MaskOperationInfo* _info = nullptr;
  RunContext _context;
};

/// The optional ability to show something cheaper or other than `apply` while parameters are tuned.
class Previewable {
 public:
  virtual ~Previewable() = default;
  [[nodiscard]] virtual std::optional<Mask> preview(const MaskOperation::Input& input) = 0;
};

/// A sentence for the descriptions of operations that grow a mask and leave its regions as they are.
[[nodiscard]] const char* added_pixels_text();

/// The value of `reset_mask_chain` in a step's parameters; false when it is not there or they are not a map.
[[nodiscard]] bool resets_mask_chain(const Value& params);

}  // namespace orvexa::model
