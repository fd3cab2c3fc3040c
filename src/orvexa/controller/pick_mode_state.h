#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "orvexa/model/operation_base.h"
#include "orvexa/model/pick_geometry.h"

namespace orvexa::controller {

using PickGeometry = std::variant<model::PickPoint, model::PickPoints, model::PickRect, model::PickRects>;
using PickCallback =
    std::function<void(const std::string& operation_key, const model::Interaction&, const PickGeometry&)>;

/// Whether the user is picking something on the image, for which parameter, and who is told. Made without arguments it
/// is the inactive state.
struct PickModeState {
  bool active = false;
  std::optional<model::Interaction> interaction;
  std::string operation_key;
  PickCallback callback;
};

}  // namespace orvexa::controller
