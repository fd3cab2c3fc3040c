#pragma once

#include <QIcon>

namespace orvexa::ui {

/// The program's own picture, a leaf with the outline of a mask, painted at the sizes that windows ask for.
[[nodiscard]] QIcon program_icon();

}  // namespace orvexa::ui
