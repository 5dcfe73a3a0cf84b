#include "Core/Objects/QLM_SafePtr.h"

#include "Core/Objects/QLM_List.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

std::string QLM_ClassName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> demangled(abi::__cxa_demangle(type.name(), nullptr, nullptr, &status),
                                                           std::free);
    return std::string("class ") + (status == 0 && demangled ? demangled.get() : type.name());
}

void QLM_FailSafePtr(const QLM_GarbageCollectionItem* item, const std::type_info& type, const char* operation) {
    const std::string name = QLM_ClassName(type);
    const std::string called = operation ? operation : "operator " + name + " *";
    QLM_CheckItem(item, ("QLM_SafePtr<" + name + ">::" + called).c_str());
}

void QLM_FailContainer(const QLM_GarbageCollectionItem* item, const char* container, const std::type_info& type,
                       bool isSafePtr, const char* operation) {
    const std::string name = QLM_ClassName(type);
    // A template argument that is a template itself needs the blank between the brackets.
    const std::string element = isSafePtr ? "class QLM_SafePtr<" + name + "> " : name + " *";
    std::string called = operation;
    if (called == "operator ") called += isSafePtr ? "class QLM_SafePtr<" + name + ">" : element;
    QLM_CheckItem(item, (container + ("<" + element + ">::" + called)).c_str());
}
