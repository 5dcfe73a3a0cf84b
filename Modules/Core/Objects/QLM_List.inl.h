#pragma once

template <class T> void QLM_CheckElement(const T& element, const char* container, const char* operation, bool nullAllowed) {
    if constexpr (QLM_IsSafePtr<T>::value) {
        using Item = typename QLM_IsSafePtr<T>::Item;
        Item* raw = nullptr;
        static_assert(sizeof(raw) == sizeof(element));
        std::memcpy(&raw, &element, sizeof raw); // the stored pointer, without the safe pointer's own check
        if (!(raw == nullptr && nullAllowed) && !QLM_IsItemUsable(raw))
            QLM_FailContainer(raw, container, typeid(Item), true, operation);
    } else if constexpr (QLM_IsCheckedPointer<T>) {
        if (!(element == nullptr && nullAllowed) && !QLM_IsItemUsable(element))
            QLM_FailContainer(element, container, typeid(std::remove_pointer_t<T>), false, operation);
    }
}

template <class T> void QLM_RootClassQueue<T>::Check(const char* operation, bool nullAllowed) const {
    QLM_CheckElement(this->front(), "QLM_RootClassQueue", operation, nullAllowed);
}

template <class T> QLM_RootClassQueue<T> QLM_List<T>::GetParsingQueue() const {
    QLM_RootClassQueue<T> queue;
    for (const T& element : *this) {
        QLM_CheckElement(element, "QLM_List", "GetParsingQueue", true);
        queue.Push(element);
    }
    return queue;
}
