// GLib and GObject: counted objects with interfaces, typed values, and containers without a lock of
// their own, which stand under GLib's mutex here.
#include "Lists.h"
#include "Readers.h"

#include <cstring>
#include <glib-object.h>
#include <mutex>
#include <utility>

namespace Tavrik::Ossira::tBench
{

namespace
{

// --- A class with six interfaces -----------------------------------------------------------------

constexpr int InterfaceCount = 6;

[[nodiscard]] GType InterfaceType(int number)
{
    static const auto types = []
    {
        std::array<GType, InterfaceCount> made;
        for (std::size_t at = 0; at < made.size(); ++at)
            made[at] = g_type_register_static_simple(
                G_TYPE_INTERFACE, ("BenchInterface" + std::to_string(at)).c_str(),
                sizeof(GTypeInterface), nullptr, 0, nullptr, GTypeFlags{});
        return made;
    }();
    return types[static_cast<std::size_t>(number)];
}

[[nodiscard]] GType ObjectType()
{
    static const GType type = []
    {
        const GType made =
            g_type_register_static_simple(G_TYPE_OBJECT, "BenchObject", sizeof(GObjectClass),
                                          nullptr, sizeof(GObject), nullptr, GTypeFlags{});
        const GInterfaceInfo none = {nullptr, nullptr, nullptr};
        for (int number = 0; number < InterfaceCount; ++number)
            g_type_add_interface_static(made, InterfaceType(number), &none);
        return made;
    }();
    return type;
}

class CGlibPointer
{
public:
    CGlibPointer() = default;

    explicit CGlibPointer(gpointer adopted) noexcept : mObject(adopted)
    {
    }

    CGlibPointer(const CGlibPointer& other) noexcept : mObject(other.mObject)
    {
        if (mObject != nullptr)
            g_object_ref(mObject);
    }

    CGlibPointer& operator=(CGlibPointer other) noexcept
    {
        std::swap(mObject, other.mObject);
        return *this;
    }

    ~CGlibPointer()
    {
        if (mObject != nullptr)
            g_object_unref(mObject);
    }

    [[nodiscard]] gpointer Get() const noexcept
    {
        return mObject;
    }

    [[nodiscard]] static CGlibPointer Make()
    {
        return CGlibPointer(g_object_new(ObjectType(), nullptr));
    }

private:
    gpointer mObject = nullptr;
};

class CGlibMutex
{
public:
    CGlibMutex() noexcept
    {
        g_mutex_init(&mMutex);
    }

    CGlibMutex(const CGlibMutex&) = delete;
    CGlibMutex& operator=(const CGlibMutex&) = delete;

    ~CGlibMutex()
    {
        g_mutex_clear(&mMutex);
    }

    void lock() noexcept
    {
        g_mutex_lock(&mMutex);
    }

    void unlock() noexcept
    {
        g_mutex_unlock(&mMutex);
    }

private:
    GMutex mMutex;
};

// --- Objects -------------------------------------------------------------------------------------

struct RefAndUnref
{
    static constexpr const char* Name = "g_object_ref, g_object_unref";
    CGlibPointer Object = CGlibPointer::Make();

    void operator()()
    {
        g_object_ref(Object.Get());
        g_object_unref(Object.Get());
    }
};

struct CastToInterface
{
    static constexpr const char* Name = "g_type_check_instance_cast, ref, unref";
    CGlibPointer Object = CGlibPointer::Make();

    void operator()()
    {
        auto* const instance = static_cast<GTypeInstance*>(Object.Get());
        GTypeInstance* const answer =
            g_type_check_instance_cast(instance, InterfaceType(InterfaceCount - 1));
        g_object_ref(answer);
        g_object_unref(answer);
    }
};

struct NewByType
{
    static constexpr const char* Name = "g_object_new";

    void operator()()
    {
        g_object_unref(g_object_new(ObjectType(), nullptr));
    }
};

// --- Values --------------------------------------------------------------------------------------

class CGlibValue
{
public:
    explicit CGlibValue(GType type)
    {
        g_value_init(&mValue, type);
    }

    CGlibValue(const CGlibValue&) = delete;
    CGlibValue& operator=(const CGlibValue&) = delete;

    ~CGlibValue()
    {
        g_value_unset(&mValue);
    }

protected:
    GValue mValue = G_VALUE_INIT;
};

class CSetInt : CGlibValue
{
public:
    static constexpr const char* Name = "GValue, without a lock";

    CSetInt() : CGlibValue(G_TYPE_INT)
    {
    }

    void operator()()
    {
        benchmark::DoNotOptimize(mIn);
        g_value_set_int(&mValue, mIn);
        gint out = g_value_get_int(&mValue);
        benchmark::DoNotOptimize(out);
    }

private:
    gint mIn = 1;
};

class CSetString : CGlibValue
{
public:
    static constexpr const char* Name = "GValue with a string, without a lock";

    CSetString() : CGlibValue(G_TYPE_STRING)
    {
        mIn.fill('x');
        mIn.back() = '\0';
    }

    void operator()()
    {
        benchmark::DoNotOptimize(mIn);
        g_value_set_string(&mValue, mIn.data());
        std::array<char, 100> out;
        std::memcpy(out.data(), g_value_get_string(&mValue), out.size());
        benchmark::DoNotOptimize(out);
    }

private:
    std::array<char, 100> mIn;
};

// --- Containers ----------------------------------------------------------------------------------

class CHashTable
{
public:
    static constexpr const char* Name = "GHashTable under a GMutex";

    explicit CHashTable(const Keys& keys)
        : mKeys(keys), mTable(g_hash_table_new_full(Hash, Equal, nullptr, g_object_unref))
    {
        for (GUID& key : mKeys)
            g_hash_table_insert(mTable, &key, g_object_new(ObjectType(), nullptr));
    }

    CHashTable(const CHashTable&) = delete;
    CHashTable& operator=(const CHashTable&) = delete;

    ~CHashTable()
    {
        g_hash_table_destroy(mTable);
    }

    void Read(const GUID& key)
    {
        mMutex.lock();
        const gpointer item = g_object_ref(g_hash_table_lookup(mTable, &key));
        mMutex.unlock();
        g_object_unref(item);
    }

private:
    static guint Hash(gconstpointer key)
    {
        return static_cast<guint>(GuidHash()(*static_cast<const GUID*>(key)));
    }

    static gboolean Equal(gconstpointer a, gconstpointer b)
    {
        return SameGuid(*static_cast<const GUID*>(a), *static_cast<const GUID*>(b));
    }

    CGlibMutex mMutex;
    Keys mKeys;
    GHashTable* mTable;
};

// Like a vector of pointers, as far as the loops need it.
class CPointerArray
{
public:
    CPointerArray() : mArray(g_ptr_array_new_with_free_func(g_object_unref))
    {
    }

    CPointerArray(const CPointerArray&) = delete;
    CPointerArray& operator=(const CPointerArray&) = delete;

    ~CPointerArray()
    {
        g_ptr_array_unref(mArray);
    }

    void push_back(const CGlibPointer& item)
    {
        const std::lock_guard guard(mMutex);
        g_ptr_array_add(mArray, g_object_ref(item.Get()));
    }

    [[nodiscard]] CGlibPointer operator[](guint index) const
    {
        const std::lock_guard guard(mMutex);
        return CGlibPointer(g_object_ref(g_ptr_array_index(mArray, index)));
    }

    struct Walker
    {
        const CPointerArray* Of;
        guint At;

        [[nodiscard]] CGlibPointer operator*() const
        {
            return (*Of)[At];
        }

        Walker& operator++()
        {
            ++At;
            return *this;
        }

        [[nodiscard]] bool operator!=(const Walker& other) const
        {
            return At != other.At;
        }
    };

    [[nodiscard]] Walker begin() const
    {
        return {this, 0};
    }

    [[nodiscard]] Walker end() const
    {
        return {this, mArray->len};
    }

private:
    mutable CGlibMutex mMutex;
    GPtrArray* mArray;
};

struct PointerArray : ListTrait<CGlibPointer, CPointerArray, guint>
{
    static constexpr const char* Name = "GPtrArray under a GMutex";

    [[nodiscard]] static Pointer Make()
    {
        return Pointer::Make();
    }
};

const CPeerLibrary gGlib("GLib", Joined({RoundPeer<RefAndUnref>(Topic::Reference),
                                         RoundPeer<CastToInterface>(Topic::Interface),
                                         RoundPeer<NewByType>(Topic::Creation),
                                         RoundPeer<CSetInt>(Topic::SmallValue),
                                         RoundPeer<CSetString>(Topic::LargeValue)},
                                        DictionaryPeers<CHashTable>(), ListPeers<PointerArray>()));

} // namespace

} // namespace Tavrik::Ossira::tBench
