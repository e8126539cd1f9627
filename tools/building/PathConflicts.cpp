#include "tools/building/PathConflicts.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <unordered_map>

#include "general/foundation/Paths.h"
#include "general/foundation/propertylist/TextFormat.h"

namespace bundletool {

namespace paths = foundation::paths;

namespace {

struct Owner {
  const ComponentDescription* component;
  const InstallItem* item;
};

bool shareProduct(const ComponentDescription& left, const ComponentDescription& right) {
  return &left == &right || std::ranges::any_of(left.products, [&right](const std::string& product) {
    return std::ranges::find(right.products, product) != right.products.end();
  });
}

// What an entry does not say is left as it is, so it cannot disagree.
bool agree(const std::optional<std::uint32_t>& left, const std::optional<std::uint32_t>& right) {
  return !left || !right || *left == *right;
}

bool agree(const foundation::FileAttributes& left, const foundation::FileAttributes& right) {
  return agree(left.owner, right.owner) && agree(left.group, right.group) && agree(left.permissions, right.permissions);
}

class ConflictSearch {
 public:
  explicit ConflictSearch(Problems& problems) : problems_(problems) {}

  void run(const std::vector<ComponentItems>& components) {
    for (const ComponentItems& entry : components) {
      for (const InstallItem& item : entry.items) {
        add({entry.component, &item});
      }
    }
    for (const ComponentItems& entry : components) {
      checkParents(entry);
    }
  }

 private:
  void add(Owner added) {
    std::vector<Owner>& owners = owners_[added.item->path];
    const auto conflict = std::ranges::find_if(owners, [&](const Owner& earlier) { return collide(earlier, added); });
    if (conflict != owners.end()) {
      report(*conflict, added);
    }
    owners.push_back(added);
  }

  static bool collide(const Owner& earlier, const Owner& added) {
    if (!shareProduct(*earlier.component, *added.component)) {
      return false;
    }
    const bool folders = earlier.item->kind == InstallItem::Kind::Directory && added.item->kind == earlier.item->kind &&
                         agree(earlier.item->attributes, added.item->attributes);
    return !folders || (earlier.component == added.component && !added.item->removesContents);
  }

  void report(const Owner& earlier, const Owner& added) {
    const bool folders =
        earlier.item->kind == InstallItem::Kind::Directory && added.item->kind == InstallItem::Kind::Directory;
    const std::string where =
        earlier.item->isHandWritten() ? earlier.item->key + " in " + earlier.item->file : earlier.item->file;
    problems_.error({added.item->file, added.item->key,
                     foundation::format(folders && earlier.component != added.component
                                            ? "folder %@ has another owner, group or mode in component %@ (%@)"
                                            : "path %@ is installed by component %@ already (%@)",
                                        added.item->path, earlier.component->name, where),
                     folders ? "make them agree, or list the folder once" : "remove one of them"});
  }

  // Staged items lie in staged folders; only the ways into a component need a look: its root and entries made by hand.
  void checkParents(const ComponentItems& entry) {
    bool isFirst = true;
    for (const InstallItem& item : entry.items) {
      if (isFirst || item.isHandWritten()) {
        checkParents(*entry.component, item);
      }
      isFirst = false;
    }
  }

  void checkParents(const ComponentDescription& component, const InstallItem& item) {
    for (std::string parent = paths::deleteLastComponent(item.path); parent.size() > 1;
         parent = paths::deleteLastComponent(parent)) {
      const auto owners = owners_.find(parent);
      if (owners == owners_.end()) {
        continue;
      }
      for (const Owner& owner : owners->second) {
        if (owner.item->kind != InstallItem::Kind::Directory && shareProduct(*owner.component, component)) {
          problems_.error({item.file, item.key,
                           foundation::format("%@ lies below %@, which is no folder in component %@", item.path, parent,
                                              owner.component->name),
                           "move one of them"});
          return;
        }
      }
    }
  }

  Problems& problems_;
  std::unordered_map<std::string_view, std::vector<Owner>> owners_;
};

}  // namespace

void findPathConflicts(const std::vector<ComponentItems>& components, Problems& problems) {
  ConflictSearch(problems).run(components);
}

}  // namespace bundletool
