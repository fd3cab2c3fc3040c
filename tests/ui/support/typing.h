#pragma once

#include <QClipboard>
#include <QGuiApplication>
#include <QLineEdit>
#include <QTest>

namespace orvexa::test {

/// Puts a text into a line as a person would who has copied it elsewhere, and presses Return. (Letters outside ASCII
/// have no keys that a test could press.)
inline void paste_and_return(QLineEdit* edit, const QString& text) {
  edit->setFocus();
  edit->selectAll();
  QGuiApplication::clipboard()->setText(text);
  QTest::keySequence(edit, QKeySequence::Paste);
  QTest::keyClick(edit, Qt::Key_Return);
}

}  // namespace orvexa::test
