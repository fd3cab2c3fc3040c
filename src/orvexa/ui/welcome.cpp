#include "orvexa/ui/welcome.h"

#include <QCommandLinkButton>
#include <QLabel>
#include <QVBoxLayout>

namespace orvexa::ui {

namespace {

QCommandLinkButton* offer(const char* name, const QString& text, const QString& what_happens) {
  auto* button = new QCommandLinkButton(text, what_happens);
  button->setObjectName(name);
  button->setAccessibleDescription(what_happens);
  return button;
}

}  // namespace

Welcome::Welcome(QWidget* parent) : QWidget(parent) {
  auto* title = new QLabel(tr("Orvexa"));
  QFont large = title->font();
  large.setPointSizeF(large.pointSizeF() * 2);
  large.setBold(true);
  title->setFont(large);
  auto* what = new QLabel(
      tr("Measures things in camera pictures: choose which pixels count, tick what to measure, run the folder."));
  what->setWordWrap(true);

  auto* folder = offer("welcome_folder", tr("Open a folder (Ctrl+Shift+O)"), tr("Captures and images of your own"));
  auto* capture = offer("welcome_capture", tr("Open a capture or an image (Ctrl+O)"),
                        tr("A header file HDR_*.INF, or a picture file"));
  auto* samples = offer("welcome_samples", tr("Open a sample"),
                        tr("Captures drawn by the program, with known answers, to try everything on"));
  auto* workflow = offer("welcome_workflow", tr("Open a workflow"), tr("A file that this program has saved"));
  connect(folder, &QAbstractButton::clicked, this, &Welcome::folder_wanted);
  connect(capture, &QAbstractButton::clicked, this, &Welcome::capture_wanted);
  connect(samples, &QAbstractButton::clicked, this, &Welcome::samples_wanted);
  connect(workflow, &QAbstractButton::clicked, this, &Welcome::workflow_wanted);

  auto* column = new QWidget;
  column->setMaximumWidth(520);
  auto* offers = new QVBoxLayout(column);
  offers->addWidget(title);
  offers->addWidget(what);
  offers->addSpacing(12);
  for (QWidget* button : {folder, capture, samples, workflow}) offers->addWidget(button);
  auto* page = new QVBoxLayout(this);
  page->addStretch(1);
  page->addWidget(column, 0, Qt::AlignHCenter);
  page->addStretch(2);
  setFocusProxy(folder);
}

}  // namespace orvexa::ui
