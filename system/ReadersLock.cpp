// What happens when readers meet. A row whose memory cannot be had is tried for again when they
// have met a few times more.
#include "ReadersLock.h"

#include <new>

namespace Tavrik::tSystem
{

CReadersLock::~CReadersLock()
{
    delete mRow.load(std::memory_order_relaxed);
}

void CReadersLock::WaitToRead(CFastCriticalSection& word, const LockPlace& place) noexcept
{
    if (&word == &mWord)
    {
        word.lock(place);
        if (!HasRow() && ++mMeetings == MeetingsToGrow)
        {
            mMeetings = 0;
            mRow.store(new (std::nothrow) CRow, std::memory_order_release);
        }
        return;
    }
    // Two readers in one seat, if it is no writer: seats are given anew, until there were so many
    // changes that there must be more readers than seats.
    CRow& row = *mRow.load(std::memory_order_relaxed);
    if (!mWord.IsTaken() && row.ChangesLeft.load(std::memory_order_relaxed) > 0)
    {
        row.ChangesLeft.fetch_sub(1, std::memory_order_relaxed);
        row.Factor.store(row.Factor.load(std::memory_order_relaxed) * 0x2C1B3C6D,
                         std::memory_order_relaxed);
    }
    word.lock(place);
}

void CReadersLock::TakeAll(CRow& row) noexcept
{
    for (Seat& seat : row.Seats)
        seat.Word.Take();
}

void CReadersLock::GiveAll(CRow& row) noexcept
{
    for (Seat& seat : row.Seats)
        seat.Word.Give();
}

} // namespace Tavrik::tSystem
