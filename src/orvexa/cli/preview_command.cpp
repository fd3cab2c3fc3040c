#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "orvexa/cli/commands.h"
#include "orvexa/cli/interrupt.h"
#include "orvexa/cli/mask_text.h"
#include "orvexa/cli/session.h"
#include "orvexa/cli/step_words.h"
#include "orvexa/cli/workflow_problems.h"
#include "orvexa/common/files.h"
#include "orvexa/common/text.h"
#include "orvexa/controller/controller.h"
#include "orvexa/model/codecs/image_file.h"

namespace orvexa::cli {

namespace {

namespace fs = std::filesystem;

struct ImageName {
  std::string measurement;
  std::string image;
  [[nodiscard]] std::string text() const { return measurement + "." + image; }
};

void expect_picture_files(const GivenWords& given) {
  if (!given.has("--mask") && !given.has("--overlay")) {
    throw UsageError("orvexa preview: --mask FILE or --overlay FILE is missing; see orvexa preview --help.");
  }
  for (const char* option : {"--mask", "--overlay"}) {
    const std::string& file = given.text(option);
    if (!file.empty() && common::to_lower_ascii(fs::path(file).extension().string()) != ".png") {
      throw UsageError(fmt::format("{} is \"{}\"; the name of a .png file is expected.", option, file));
    }
  }
  if (fs::path(given.text("--mask")).lexically_normal() == fs::path(given.text("--overlay")).lexically_normal()) {
    throw UsageError("--mask and --overlay name the same file.");
  }
  if (given.has("--image") && !given.has("--overlay")) throw UsageError("--image needs --overlay FILE.");
}

/// A picture of the capture itself is never written over.
void expect_no_input(const GivenWords& given, const model::CaptureSet& capture) {
  for (const char* option : {"--mask", "--overlay"}) {
    for (const model::SourceFile& source : capture.sources) {
      std::error_code unknown;
      if (given.has(option) && fs::equivalent(given.text(option), source.path, unknown)) {
        throw UsageError(fmt::format("{} names {}, a file of the capture.", option, common::path_text(source.path)));
      }
    }
  }
}

/// What the overlay is drawn on: the image of that name, else the first one in colour, else the first one.
ImageName overlaid_image(const model::CaptureSet& capture, const std::string& wanted) {
  std::vector<ImageName> images;
  for (const std::string& measurement : capture.get_measurement_types()) {
    for (const std::string& image : capture.image_names(measurement)) images.push_back({measurement, image});
  }
  std::vector<std::string> known;
  for (const ImageName& image : images) {
    if (image.text() == wanted) return image;
    known.push_back(image.text());
  }
  if (!wanted.empty()) {
    throw UsageError(fmt::format("The capture has no image \"{}\"{}; it has {}.", wanted,
                                 common::did_you_mean(wanted, known), common::joined(known, ", ")));
  }
  for (const ImageName& image : images) {
    const auto pixels = capture.find_image(image.measurement, image.image);
    if (pixels && pixels->is_color()) return image;
  }
  return images.at(0);
}

/// A step of the workflow that fails is passed over where masks are previewed; here it ends the command.
controller::Controller::MaskPreview run_preview(const controller::Controller& controller,
                                                const NamedOperation& operation, const common::Value& params,
                                                const std::string& workflow) {
  const LoggedFailure failure;
  const auto expect_no_failure = [&] {
    if (const std::string cause = failure.cause(); !cause.empty()) {
      throw std::runtime_error(fmt::format("A step of {} failed: {}", common::path_text(workflow), cause));
    }
  };
  controller::Controller::MaskPreview preview;
  try {
    preview = controller.run_mask_preview(operation.key, params, &interrupt_event());
  } catch (const model::CancelledError&) {
    throw;
  } catch (...) {
    // What a step left out may be what the operation lacks.
    expect_no_failure();
    throw;
  }
  expect_no_failure();
  if (!preview.mask) throw std::runtime_error(operation.key + " gave no mask.");
  return preview;
}

int answer(Console& console, const GivenWords& given, const controller::Controller::MaskPreview& preview,
           const std::string& image) {
  const std::string& op = preview.operation->info().key;
  const std::string& note = preview.operation->note;
  if (console.json) {
    common::Value document = {{"op", op}};
    document.update(mask_document(*preview.mask));
    if (!note.empty()) document["note"] = common::to_valid_utf8(note);
    if (given.has("--mask")) document["mask"] = common::path_text(given.text("--mask"));
    if (given.has("--overlay")) {
      document["overlay"] = common::path_text(given.text("--overlay"));
      document["image"] = common::to_valid_utf8(image);
    }
    console.answer_json(document);
    return exit_done;
  }
  if (console.quiet) return exit_done;
  std::string text = fmt::format("{}: {}\n", op, mask_text(*preview.mask));
  if (!note.empty()) text += fmt::format("{}: {}\n", op, common::visible_text(note));
  if (given.has("--mask")) text += "Mask: " + common::visible_text(given.text("--mask")) + "\n";
  if (given.has("--overlay")) {
    text +=
        fmt::format("Overlay on {}: {}\n", common::visible_text(image), common::visible_text(given.text("--overlay")));
  }
  console.answer(text);
  return exit_done;
}

int preview_command(Console& console, const GivenWords& given) try {
  handle_interrupts();
  expect_picture_files(given);
  controller::Controller controller;
  controller.set_processing_mode("batch");
  const NamedOperation operation = find_mask_operation(controller, given.text("--op"));
  // A path on the command line is relative to the current folder, whatever a workflow's would be relative to.
  const common::Value params = with_paths(operation, parameters_from_words(operation, given.texts("--param")),
                                          [](const std::string& path) { return fs::absolute(path).string(); });
  const std::string& workflow = given.text("--workflow");
  if (!workflow.empty()) {
    for (const model::WorkflowProblem& problem : workflow_problems(workflow)) {
      if (problem.place && problem.place->is_mask) {
        throw std::runtime_error(problem_sentence(common::path_text(workflow), problem));
      }
    }
    load_workflow(controller, workflow);
  }
  console.progress("Loading " + common::path_text(given.text("CAPTURE")));
  load_capture(controller, given.text("CAPTURE"));
  const model::CaptureSet& capture = *controller.state.current_capture;
  expect_no_input(given, capture);
  const ImageName image = overlaid_image(capture, given.text("--image"));

  console.progress("Previewing " + operation.key);
  const auto preview = run_preview(controller, operation, params, workflow);
  if (given.has("--mask")) {
    common::write_file_atomically(given.text("--mask"), model::encode_mask_png(*preview.mask));
  }
  if (given.has("--overlay")) {
    const auto images = controller._generate_mask_preview_images(*preview.mask, operation.key, params);
    const model::Image overlay = images.at(image.measurement).overlay_images.at(image.image).pixels();
    common::write_file_atomically(given.text("--overlay"), model::encode_png(overlay));
  }
  console.end_progress();
  return answer(console, given, preview, image.text());
} catch (const model::CancelledError&) {
  return answer_interrupted(console, "Interrupted; no preview was written.");
}

}  // namespace

const CommandInfo& preview_command_info() {
  static const CommandInfo info{
      .name = "preview",
      .summary = "Show which pixels a mask operation keeps, without a run",
      .arguments = {{.name = "CAPTURE",
                     .help = "A header file HDR_*.INF, or an ordinary image file",
                     .kind = WordKind::file}},
      .options = {{.name = "--op",
                   .value = "KEY",
                   .help = "The mask operation; orvexa ops lists them",
                   .kind = WordKind::mask_operation,
                   .is_required = true},
                  {.name = "--param",
                   .letter = "-p",
                   .value = "NAME=VALUE",
                   .help = "A parameter; may be given again. The others have their defaults",
                   .kind = WordKind::parameter,
                   .repeats = true},
                  {.name = "--workflow",
                   .letter = "-w",
                   .value = "WORKFLOW",
                   .help = "On top of this workflow's mask steps, up to the first one with the same key",
                   .kind = WordKind::file},
                  {.name = "--mask",
                   .value = "FILE",
                   .help = "Write the mask there, a .png with white for the pixels that count",
                   .kind = WordKind::file},
                  {.name = "--overlay",
                   .value = "FILE",
                   .help = "Write the mask drawn on an image there, a .png",
                   .kind = WordKind::file},
                  {.name = "--image",
                   .value = "NAME",
                   .help =
                       "The image to draw on, such as MSP.NIR; by default the first one in colour, else the first"}},
      .remarks =
          "A region of interest is previewed on the bare capture. Files that are there are replaced, but never one\n"
          "of the capture.\n",
      .examples = {"orvexa preview captures/HDR_plot_0007.INF --op threshold_auto -p method=li --overlay li.png",
                   "orvexa preview leaf.jpg -w leaves.yaml --op remove_small -p min_area=200 --mask mask.png"},
      .run = preview_command};
  return info;
}

}  // namespace orvexa::cli
