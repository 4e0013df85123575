#include "Kit/NSObject.h"

namespace tarvik {

const KitClass& NSObject::staticClass() {
    static const KitClass kitClass{"NSObject", nullptr};
    return kitClass;
}

bool NSObject::isKindOfClass(std::string_view name) const {
    for (const KitClass* kitClass = &objectClass(); kitClass; kitClass = kitClass->superclass) {
        if (kitClass->name == name) {
            return true;
        }
    }
    return false;
}

bool NSObject::isKindOfClass(const KitClass& wanted) const {
    for (const KitClass* kitClass = &objectClass(); kitClass; kitClass = kitClass->superclass) {
        if (kitClass == &wanted) {
            return true;
        }
    }
    return false;
}

std::vector<InstanceVariable> NSObject::instanceVariablesDeclaredBy(const KitClass&) const {
    return {};
}

}  // namespace tarvik
