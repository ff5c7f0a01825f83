// Qt Core: implicitly shared and explicitly counted objects, the meta-object system, and containers
// without a lock of their own, which stand under Qt's locks here.
#include "Lists.h"
#include "Readers.h"

#include <QExplicitlySharedDataPointer>
#include <QHash>
#include <QList>
#include <QMetaType>
#include <QMutex>
#include <QObject>
#include <QReadWriteLock>
#include <QSharedPointer>
#include <QUuid>
#include <QVariant>
#include <cstring>

namespace Tavrik::Ossira::tBench
{

// What the meta-object compiler reads.
struct IQtFirst
{
    virtual ~IQtFirst() = default;
};

struct IQtLast
{
    virtual ~IQtLast() = default;
};

} // namespace Tavrik::Ossira::tBench

Q_DECLARE_INTERFACE(Tavrik::Ossira::tBench::IQtFirst, "bench.first")
Q_DECLARE_INTERFACE(Tavrik::Ossira::tBench::IQtLast, "bench.last")

namespace Tavrik::Ossira::tBench
{

class CQtObject : public QObject, public IQtFirst, public IQtLast
{
    Q_OBJECT
    Q_INTERFACES(Tavrik::Ossira::tBench::IQtFirst Tavrik::Ossira::tBench::IQtLast)

public:
    Q_INVOKABLE CQtObject() = default;
};

// As large as a small object, for the creation by the number of a type.
struct CQtContent
{
    std::array<std::uint64_t, 12> Words = {};
};

} // namespace Tavrik::Ossira::tBench

Q_DECLARE_METATYPE(Tavrik::Ossira::tBench::CQtContent)

namespace Tavrik::Ossira::tBench
{

namespace
{

struct CQtShared : QSharedData
{
    int Number = 0;
};

using CQtPointer = QExplicitlySharedDataPointer<CQtShared>;

template <class Pointer>
struct CopyPointer
{
    Pointer Object = Pointer(new CQtShared);

    void operator()()
    {
        Pointer copy(Object);
        benchmark::DoNotOptimize(copy);
    }
};

struct CopyShared : CopyPointer<QSharedPointer<CQtShared>>
{
    static constexpr const char* Name = "QSharedPointer";
};

struct CopyExplicitlyShared : CopyPointer<CQtPointer>
{
    static constexpr const char* Name = "QExplicitlySharedDataPointer";
};

struct CastObject
{
    static constexpr const char* Name = "qobject_cast to the last of two interfaces";
    CQtObject Object;

    void operator()()
    {
        QObject* object = &Object;
        benchmark::DoNotOptimize(object);
        auto* answer = qobject_cast<IQtLast*>(object);
        benchmark::DoNotOptimize(answer);
    }
};

struct CreateByMetaType
{
    static constexpr const char* Name = "QMetaType::create of 96 bytes by its number";
    int Type = qMetaTypeId<CQtContent>();

    void operator()()
    {
        const QMetaType type(Type);
        void* const made = type.create();
        benchmark::ClobberMemory();
        type.destroy(made);
    }
};

struct CreateByMetaObject
{
    static constexpr const char* Name = "QMetaObject::newInstance";
    const QMetaObject* Class = &CQtObject::staticMetaObject;

    void operator()()
    {
        delete Class->newInstance();
    }
};

struct SetInt
{
    static constexpr const char* Name = "QVariant, without a lock";
    QVariant Value;
    int In = 1;

    void operator()()
    {
        benchmark::DoNotOptimize(In);
        Value.setValue(In);
        int out = Value.toInt();
        benchmark::DoNotOptimize(out);
    }
};

struct SetBytes
{
    static constexpr const char* Name = "QVariant with a QByteArray, without a lock";
    QVariant Value;
    std::array<char, 100> In = {};

    void operator()()
    {
        benchmark::DoNotOptimize(In);
        Value.setValue(QByteArray(In.data(), static_cast<qsizetype>(In.size())));
        std::array<char, 100> out;
        std::memcpy(out.data(), Value.toByteArray().constData(), out.size());
        benchmark::DoNotOptimize(out);
    }
};

// Qt's own table of Qt's own identifiers; a GUID has the same layout.
template <class Lock, class Guard>
class CGuardedHash
{
public:
    explicit CGuardedHash(const Keys& keys)
    {
        for (const GUID& key : keys)
            mHash.insert(Uuid(key), CQtPointer(new CQtShared));
    }

    void Read(const GUID& key)
    {
        CQtPointer item;
        {
            const Guard guard(&mLock);
            item = mHash.constFind(Uuid(key)).value();
        }
        benchmark::DoNotOptimize(item);
    }

private:
    [[nodiscard]] static QUuid Uuid(const GUID& key) noexcept
    {
        static_assert(sizeof(QUuid) == sizeof(GUID));
        return std::bit_cast<QUuid>(key);
    }

    Lock mLock;
    QHash<QUuid, CQtPointer> mHash;
};

struct HashUnderReadWriteLock : CGuardedHash<QReadWriteLock, QReadLocker>
{
    static constexpr const char* Name = "QHash under a QReadWriteLock";
    using CGuardedHash::CGuardedHash;
};

struct HashUnderMutex : CGuardedHash<QMutex, QMutexLocker<QMutex>>
{
    static constexpr const char* Name = "QHash under a QMutex";
    using CGuardedHash::CGuardedHash;
};

struct ListOfPointers : ListTrait<CQtPointer, QList<CQtPointer>, qsizetype>
{
    static constexpr const char* Name = "QList of explicitly shared pointers, without a lock";

    [[nodiscard]] static Pointer Make()
    {
        return Pointer(new CQtShared);
    }
};

const CPeerLibrary
    gQt("Qt", Joined({RoundPeer<CopyShared>(Topic::Reference),
                      RoundPeer<CopyExplicitlyShared>(Topic::Reference),
                      RoundPeer<CastObject>(Topic::Interface),
                      RoundPeer<CreateByMetaType>(Topic::Creation),
                      RoundPeer<CreateByMetaObject>(Topic::Creation),
                      RoundPeer<SetInt>(Topic::SmallValue), RoundPeer<SetBytes>(Topic::LargeValue)},
                     DictionaryPeers<HashUnderReadWriteLock>(), DictionaryPeers<HashUnderMutex>(),
                     ListPeers<ListOfPointers>()));

} // namespace

} // namespace Tavrik::Ossira::tBench

#include "PeerQt.moc"
