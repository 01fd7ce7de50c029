// SPDX-License-Identifier: MIT
#include "VoPropertyList_p.h"

#include <plist/plist.h>

#include <QDateTime>
#include <QVariantList>
#include <QVariantMap>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>

namespace vo::detail {

namespace {

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
constexpr qint64 kPlistEpochOffset = 978307200;

struct PlistDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QVariant toVariant(plist_t node) {
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t b = 0;
            plist_get_bool_val(node, &b);
            return bool(b);
        }
        case PLIST_UINT: {
            // This libplist keeps integers unsigned: a negative number comes back as its two's complement.
            uint64_t u = 0;
            plist_get_uint_val(node, &u);
            return qint64(u);
        }
        case PLIST_UID: {
            uint64_t u = 0;
            plist_get_uid_val(node, &u);
            return qint64(u);
        }
        case PLIST_REAL: {
            double d = 0;
            plist_get_real_val(node, &d);
            return d;
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            char* text = nullptr;
            if (plist_get_node_type(node) == PLIST_STRING)
                plist_get_string_val(node, &text);
            else
                plist_get_key_val(node, &text);
            QString s = QString::fromUtf8(text ? text : "");
            std::free(text);
            return s;
        }
        case PLIST_DATA: {
            char* data = nullptr;
            uint64_t length = 0;
            plist_get_data_val(node, &data, &length);
            QByteArray bytes(data, qsizetype(length));
            std::free(data);
            return bytes;
        }
        case PLIST_DATE: {
            int32_t sec = 0, usec = 0;
            plist_get_date_val(node, &sec, &usec);
            return QDateTime::fromMSecsSinceEpoch((qint64(sec) + kPlistEpochOffset) * 1000 + usec / 1000, Qt::UTC);
        }
        case PLIST_ARRAY: {
            QVariantList list;
            const uint32_t n = plist_array_get_size(node);
            list.reserve(qsizetype(n));
            for (uint32_t i = 0; i < n; ++i) list.append(toVariant(plist_array_get_item(node, i)));
            return list;
        }
        case PLIST_DICT: {
            QVariantMap map;
            plist_dict_iter it = nullptr;
            plist_dict_new_iter(node, &it);
            for (;;) {
                char* key = nullptr;
                plist_t value = nullptr;
                plist_dict_next_item(node, it, &key, &value);
                if (!value) {
                    std::free(key);
                    break;
                }
                map.insert(QString::fromUtf8(key ? key : ""), toVariant(value));
                std::free(key);
            }
            std::free(it);
            return map;
        }
        default:
            return {};
    }
}

plist_t toPlist(const QVariant& value) {
    switch (value.typeId()) {
        case QMetaType::Bool:
            return plist_new_bool(value.toBool() ? 1 : 0);
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
            return plist_new_uint(uint64_t(value.toLongLong()));
        case QMetaType::Double:
        case QMetaType::Float:
            return plist_new_real(value.toDouble());
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
        }
        case QMetaType::QDateTime: {
            const qint64 ms = value.toDateTime().toMSecsSinceEpoch() - kPlistEpochOffset * 1000;
            const qint64 sec = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
            return plist_new_date(int32_t(sec), int32_t((ms - sec * 1000) * 1000));
        }
        case QMetaType::QVariantList:
        case QMetaType::QStringList: {
            plist_t array = plist_new_array();
            for (const QVariant& item : value.toList()) plist_array_append_item(array, toPlist(item));
            return array;
        }
        case QMetaType::QVariantMap: {
            plist_t dict = plist_new_dict();
            const QVariantMap map = value.toMap();
            for (auto it = map.cbegin(); it != map.cend(); ++it)
                plist_dict_set_item(dict, it.key().toUtf8().constData(), toPlist(it.value()));
            return dict;
        }
        default:
            return plist_new_string(value.toString().toUtf8().constData());
    }
}

}  // namespace

std::optional<QVariant> propertyListFromBytes(const std::string& bytes) {
    if (bytes.empty() || bytes.size() > UINT32_MAX) return std::nullopt;
    plist_t root = nullptr;
    const auto length = uint32_t(bytes.size());
    if (plist_is_binary(bytes.data(), length))
        plist_from_bin(bytes.data(), length, &root);
    else
        plist_from_xml(bytes.data(), length, &root);
    // This libplist reports a parse failure only by leaving the result empty.
    if (!root) return std::nullopt;
    PlistPtr owner(root);
    return toVariant(root);
}

std::optional<QVariant> propertyListFromFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return propertyListFromBytes(bytes);
}

std::string xmlPropertyList(const QVariant& value) {
    PlistPtr root(toPlist(value));
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(root.get()), &xml, &length);
    std::string text(xml ? xml : "", xml ? length : 0);
    plist_to_xml_free(xml);
    return text;
}

}  // namespace vo::detail
