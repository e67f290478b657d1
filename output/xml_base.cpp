#include "output/xml_base.h"

namespace xml {

const QString XmlBase::indent = QStringLiteral("  ");

XmlBase::XmlBase(const QString& name_, bool self_closing_) : name(name_), self_closing(self_closing_) {}

XmlBase::~XmlBase() = default;

void XmlBase::Initialize() { child_lists.push_back(&children); }

QString XmlBase::to_xml(int depth) const {
  QString out;
  AppendXml(&out, depth);
  return out;
}

void XmlBase::AppendXml(QString* out, int depth) const {
  if (!visible) return;
  for (int i = 0; i < depth; ++i) out->append(indent);
  out->append('<').append(name);
  for (const auto& [attribute, value] : attributes)
    out->append(' ').append(attribute).append("=\"").append(value).append('"');
  out->append(self_closing ? QLatin1String("/>") : QLatin1String(">"));
  if (children.empty() && child_lists.size() <= 1) {
    AppendValue(out, depth);
  } else {
    out->append('\n');
    AppendValue(out, depth);
    for (int i = 0; i < depth; ++i) out->append(indent);
  }
  if (!self_closing) out->append(QLatin1String("</")).append(name).append('>');
  out->append('\n');
}

QString XmlBase::GetMarkupOpen() const { return "<" + name + GetAttributes() + (self_closing ? "/>" : ">"); }

QString XmlBase::GetValue(int depth) const {
  QString out;
  AppendValue(&out, depth);
  return out;
}

void XmlBase::AppendValue(QString* out, int depth) const {
  if (double_value) {
    out->append(QString::number(*double_value, 'g', 6));
  } else if (int_value) {
    out->append(QString::number(*int_value));
  } else if (string_value) {
    out->append(*string_value);
  } else {
    for (const std::vector<XmlBase*>* list : child_lists)
      for (const XmlBase* child : *list) child->AppendXml(out, depth + 1);
  }
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
