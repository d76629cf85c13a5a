/// What an index does with the key cells of a meta type: one type for each form, so that the step
/// of an Action can be made for it.
#pragma once

#include "rows/key_index.h"

struct KeyForm {
    static uchar* add(KeyIndex& index, const uchar* bytes, qint64 moreBytes) {
        return index.addKey(cell::loadKey(bytes), moreBytes);
    }
    static bool build(KeyIndex& index) { return index.buildKey(); }
    static const uchar* find(const KeyIndex& index, const uchar* bytes) {
        return index.findKey(cell::loadKey(bytes));
    }
};

struct FloatForm {
    static uchar* add(KeyIndex& index, const uchar* bytes, qint64 moreBytes) {
        return index.addFloat(cell::loadFloat(bytes), moreBytes);
    }
    static bool build(KeyIndex& index) { return index.buildFloat(); }
    static const uchar* find(const KeyIndex& index, const uchar* bytes) {
        return index.findFloat(cell::loadFloat(bytes));
    }
};

struct TextForm {
    static uchar* add(KeyIndex& index, const uchar* bytes, qint64 moreBytes) {
        return index.addString(bytes, moreBytes);
    }
    static bool build(KeyIndex& index) { return index.buildString(); }
    static const uchar* find(const KeyIndex& index, const uchar* bytes) {
        return index.findString(bytes);
    }
};

/// Calls `use` with the form of a meta type.
template <class Use>
auto withKeyForm(qint32 metaType, Use use) {
    if (metaType == MetaTypeKey)
        return use(KeyForm());
    if (metaType == MetaTypeFloat)
        return use(FloatForm());
    return use(TextForm());
}
