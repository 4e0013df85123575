#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tarvik {

// A class of the toolkit's object model: its name and its superclass (none for the root).
// Names are the phone's ("UIButton") and the SDK's ("TVKButton"), so that code which decides
// by class name, such as the ignore lists of interaction tracking, applies as it is.
struct KitClass {
    const char* name;
    const KitClass* superclass;
};

class NSObject;

// An object-valued instance variable as the object model shows it: its name and the object it
// holds right now (none when empty).
struct InstanceVariable {
    std::string name;
    std::shared_ptr<NSObject> value;
};

// Declares a toolkit class: its KitClass (`staticClass()`) and the override that answers it.
#define TVK_KIT_CLASS(Name, Base)                                    \
  public:                                                            \
    static const KitClass& staticClass() {                           \
        static const KitClass kitClass{#Name, &Base::staticClass()}; \
        return kitClass;                                             \
    }                                                                \
    const KitClass& objectClass() const override {                   \
        return staticClass();                                        \
    }

// The root of the toolkit's objects: class name, the kind-of chain and the object-valued
// instance variables that a class declares.
class NSObject : public std::enable_shared_from_this<NSObject> {
  public:
    virtual ~NSObject() = default;

    static const KitClass& staticClass();
    virtual const KitClass& objectClass() const { return staticClass(); }

    std::string className() const { return objectClass().name; }
    // Whether the object is of the named class or of a class that inherits from it.
    bool isKindOfClass(std::string_view name) const;
    bool isKindOfClass(const KitClass& kitClass) const;
    // Whether the object's own class is the named one.
    bool isMemberOfClass(std::string_view name) const { return className() == name; }

    // The object-valued variables that `kitClass` itself declares (not those of its
    // superclasses or subclasses), in declaration order. A class that declares some overrides
    // this: it answers for its own class and asks its base for any other.
    virtual std::vector<InstanceVariable> instanceVariablesDeclaredBy(
        const KitClass& kitClass) const;
};

// `object` as a NSObject pointer, for instance-variable lists.
template <typename T>
std::shared_ptr<NSObject> asObject(const std::shared_ptr<T>& object) {
    return std::static_pointer_cast<NSObject>(object);
}

}  // namespace tarvik
