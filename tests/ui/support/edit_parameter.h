#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QTableWidget>
#include <QTest>
#include <algorithm>
#include <string>

#include "orvexa/ui/editors/number_box.h"
#include "orvexa/ui/editors/parameter_editor.h"

namespace orvexa::test {

/// Types into whatever has the focus.
inline void type(const QString& text) {
  for (const QChar letter : text) QTest::keyClick(QApplication::focusWidget(), letter.toLatin1());
}

/// Types over the current cell of a table. What was typed is taken when events are looked at next.
inline void type_into_cell(QTableWidget& table, const QString& text) {
  table.setFocus();
  type(text);
  QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
  QCoreApplication::processEvents();
}

/// Types over what stands in a line.
inline void type_over(QWidget& line, const QString& text) {
  line.setFocus();
  QTest::keyClick(&line, Qt::Key_A, Qt::ControlModifier);
  QTest::keyClick(&line, Qt::Key_Delete);
  QTest::keyClicks(&line, text);
}

template <typename T>
T& control(const ui::ParameterEditor& editor, const QString& name) {
  T* found = editor.findChild<T*>(name);
  if (found == nullptr) throw std::logic_error("There is no control " + name.toStdString());
  return *found;
}

/// Another number that the parameter allows.
inline double other_number(const model::ParameterInfo& info) {
  const double difference = info.type == model::ParameterType::integer ? 1 : 0.25;
  if (!info.default_value.is_number()) return info.min.value_or(0) + difference;
  const double number = info.default_value.get<double>();
  if (!info.max || number + difference <= *info.max) return number + difference;
  if (!info.min || number - difference >= *info.min) return number - difference;
  return (number + (number < *info.max ? *info.max : *info.min)) / 2;
}

/// Changes a parameter from its default to another allowed value as a person does, with the keys.
/// @return the value that the parameter must then have.
inline common::Value change_by_keys(const ui::ParameterEditor& editor) {
  using common::Value;
  using enum model::ParameterType;
  const model::ParameterInfo& info = editor.info();
  const QString name = QString::fromStdString(info.name);
  const auto typed_first_number = [&](const char* part) {
    type_over(control<ui::NumberBox>(editor, name + '_' + part), "0.25");
    Value numbers = info.default_value;
    numbers.at(0) = 0.25;
    return numbers;
  };
  switch (info.type) {
    case integer:
    case real: {
      const double number = other_number(info);
      type_over(control<ui::NumberBox>(editor, name), QString::number(number, 'g', 12));
      return info.type == integer ? Value(static_cast<std::int64_t>(number)) : Value(number);
    }
    case boolean:
      QTest::keyClick(&control<QCheckBox>(editor, name), Qt::Key_Space);
      return !info.default_value.get<bool>();
    case text:
    case file:
      type_over(control<QLineEdit>(editor, name), "other.png");
      return "other.png";
    case band:
      type_over(*control<QComboBox>(editor, name).lineEdit(), "MSP.NIR");
      return "MSP.NIR";
    case expression:
      type_over(control<QPlainTextEdit>(editor, name), "ratio = N / R");
      return "ratio = N / R";
    case choice: {
      auto& box = control<QComboBox>(editor, name);
      const bool is_last = box.currentIndex() + 1 == box.count();
      QTest::keyClick(&box, is_last ? Qt::Key_Up : Qt::Key_Down);
      const auto found = std::find(info.choices.begin(), info.choices.end(), info.default_value);
      if (found == info.choices.end()) return info.choices.front();  // before them stands "no value"
      return is_last ? *(found - 1) : *(found + 1);
    }
    case choices: {
      auto& list = control<QListWidget>(editor, name);
      QTest::keyClick(&list, Qt::Key_Home);
      QTest::keyClick(&list, Qt::Key_Down);
      QTest::keyClick(&list, Qt::Key_Space);
      Value expected = Value::array();
      for (std::size_t i = 0; i < info.choices.size(); ++i) {
        const auto& by_default = info.default_value;
        const bool was_in = std::find(by_default.begin(), by_default.end(), info.choices[i]) != by_default.end();
        if (was_in != (i == 1)) expected.push_back(info.choices[i]);
      }
      return expected;
    }
    case bands: {
      QLineEdit& line = *control<QComboBox>(editor, name + "_band").lineEdit();
      type_over(line, "MSP.NIR");
      QTest::keyClick(&line, Qt::Key_Return);
      const auto* role = editor.findChild<QComboBox*>(name + "_role");
      return Value::array({role == nullptr ? "MSP.NIR" : role->currentText().toStdString() + "=MSP.NIR"});
    }
    case point:
      return typed_first_number("x");
    case rect:
      return typed_first_number("cx");
    case points:
    case rects: {
      auto& table = control<QTableWidget>(editor, name);
      table.setFocus();
      QTest::keyClick(&table, Qt::Key_Insert);
      type_into_cell(table, "0.25");
      Value expected = info.default_value;
      expected.push_back(info.type == points ? Value::array({0.25, 0.5}) : Value::array({0.25, 0.5, 0.1, 0.1}));
      return expected;
    }
    case polygons: {
      auto& table = control<QTableWidget>(editor, name);
      table.setFocus();
      QTest::keyClick(&table, Qt::Key_Insert);
      type_into_cell(table, "0.25");
      return Value::array(
          {Value::array({Value::array({0.25, 0.4}), Value::array({0.6, 0.6}), Value::array({0.4, 0.6})})});
    }
    case palette: {
      auto& table = control<QTableWidget>(editor, name);
      table.setFocus();
      QTest::keyClick(&table, Qt::Key_Insert);
      type_into_cell(table, "moss");
      Value expected = info.default_value;
      expected.push_back(Value{{"name", "moss"}, {"lab", {50.0, 0.0, 0.0}}});
      return expected;
    }
  }
  return {};
}

}  // namespace orvexa::test
