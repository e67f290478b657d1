#pragma once

#include <QString>
#include <memory>
#include <utility>
#include <vector>

namespace xml {

// One element of a MusicXML document. Each element class knows its name, its attributes and its
// children in the order the schema wants; optional children exist from the start and are only
// switched visible. Leaf elements point at a field of their parent, so the parent's value can
// change at any time before printing. Nothing is escaped here: the caller escapes the final text.
// Elements are neither copied nor moved, since leaves point into their parents.
class XmlBase {
 public:
  explicit XmlBase(const QString& name, bool self_closing = false);
  virtual ~XmlBase();
  XmlBase(const XmlBase&) = delete;
  XmlBase& operator=(const XmlBase&) = delete;

  // The text of this element and everything under it, each level indented by two blanks,
  // ending in a line end; empty when the element is not visible.
  QString to_xml(int depth) const;
  QString GetMarkupOpen() const;
  QString GetValue(int depth) const;
  QString GetMarkupClose() const;
  QString GetAttributes() const;
  // Makes `children` the first of the lists that are printed.
  void Initialize();
  // to_xml and GetValue appended to `out`, which saves a copy of every subtree's text per level.
  void AppendXml(QString* out, int depth) const;
  void AppendValue(QString* out, int depth) const;

  // Appends a child whose lifetime this element manages; returns it for the caller to fill.
  template <typename T>
  T* Adopt(std::unique_ptr<T> child) {
    T* raw = child.get();
    children.push_back(raw);
    owned.push_back(std::move(child));
    return raw;
  }
  // Leaf children whose content is a field of this element.
  XmlBase* AddLeaf(const QString& leaf_name, int* value);
  XmlBase* AddLeaf(const QString& leaf_name, double* value);
  XmlBase* AddLeaf(const QString& leaf_name, QString* value);

  static const QString indent;

  QString name;
  std::vector<std::pair<QString, QString>> attributes;
  std::vector<XmlBase*> children;
  std::vector<std::vector<XmlBase*>*> child_lists;
  double* double_value = nullptr;
  int* int_value = nullptr;
  QString* string_value = nullptr;
  bool self_closing = false;
  bool visible = true;

 protected:
  // Appends a child that is a member of this element, so its lifetime is the element's own.
  void AddChild(XmlBase* member) { children.push_back(member); }
  // Holds an element that lives in one of the extra child lists rather than in `children`.
  template <typename T>
  T* Keep(std::unique_ptr<T> element) {
    T* raw = element.get();
    owned.push_back(std::move(element));
    return raw;
  }

 private:
  std::vector<std::unique_ptr<XmlBase>> owned;
};

}  // namespace xml
