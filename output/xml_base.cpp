#include "output/xml_base.h"

namespace xml {

const QString XmlBase::indent = QStringLiteral("  ");

XmlBase::XmlBase(const QString& name_, bool self_closing_) : name(name_), self_closing(self_closing_) {}

XmlBase::~XmlBase() = default;

void XmlBase::Initialize() { child_lists.push_back(&children); }

QString XmlBase::to_xml(int depth) const {
  if (!visible) return QString();
  const QString pad = indent.repeated(depth);
  const QString open = GetMarkupOpen();
  const QString value = GetValue(depth);
  const QString close = GetMarkupClose();
  if (children.empty() && child_lists.size() <= 1) return pad + open + value + close + "\n";
  return pad + open + "\n" + value + pad + close + "\n";
}

QString XmlBase::GetMarkupOpen() const { return "<" + name + GetAttributes() + (self_closing ? "/>" : ">"); }

QString XmlBase::GetValue(int depth) const {
  if (double_value) return QString::number(*double_value, 'g', 6);
  if (int_value) return QString::number(*int_value);
  if (string_value) return *string_value;
  QString text;
  for (const std::vector<XmlBase*>* list : child_lists)
    for (const XmlBase* child : *list) text += child->to_xml(depth + 1);
  return text;
}

QString XmlBase::GetMarkupClose() const { return self_closing ? QString() : "</" + name + ">"; }

QString XmlBase::GetAttributes() const {
  QString text;
  for (const auto& [attribute, value] : attributes) text += " " + attribute + "=\"" + value + "\"";
  return text;
}

XmlBase* XmlBase::AddLeaf(const QString& leaf_name, int* value) {
  auto leaf = std::make_unique<XmlBase>(leaf_name);
  leaf->int_value = value;
  leaf->Initialize();
  return Adopt(std::move(leaf));
}

XmlBase* XmlBase::AddLeaf(const QString& leaf_name, double* value) {
  auto leaf = std::make_unique<XmlBase>(leaf_name);
  leaf->double_value = value;
  leaf->Initialize();
  return Adopt(std::move(leaf));
}

XmlBase* XmlBase::AddLeaf(const QString& leaf_name, QString* value) {
  auto leaf = std::make_unique<XmlBase>(leaf_name);
  leaf->string_value = value;
  leaf->Initialize();
  return Adopt(std::move(leaf));
}

}  // namespace xml
