// Timing record of the trace: elapsed real time, processor time and OpenMP wall time.
#include "common/com.h"

#include <omp.h>
#include <sys/times.h>
#include <unistd.h>

#include <cstring>

namespace {

clock_t timesNow()
{
    struct tms buf;
    return times(&buf);
}

} // namespace

void comTimeBegin(const KwilHandle* handle, const char* title, ComTime* time)
{
    if (!comTraceOn(handle))
        return;
    comAssert(handle, strlen(title) < sizeof time->title, "Invalid title size in time begin");
    strcpy(time->title, title);
    time->clockTick = static_cast<int>(sysconf(_SC_CLK_TCK));
    time->timesBegin = time->timesLast = timesNow();
    time->clockBegin = time->clockLast = clock();
    time->wtimeBegin = time->wtimeLast = omp_get_wtime();
}

void comTimeCheck(const KwilHandle* handle, const char* label, ComTime* time, int twoColumn)
{
    const clock_t timesNew = timesNow();
    const clock_t clockNew = clock();
    const double wtimeNew = omp_get_wtime();
    if (!comTraceOn(handle))
        return;

    const double tick = time->clockTick;
    const double timesAll = static_cast<long>(timesNew - time->timesBegin) / tick;
    const double clockAll = static_cast<long>(clockNew - time->clockBegin) / 1000000.0;
    const double wtimeAll = wtimeNew - time->wtimeBegin;
    comTrace(handle, "Time %s: %s", time->title, label);
    if (twoColumn == 0) {
        comTrace(handle, " - times %.3fs clock %.3fs omtime %.3fs", timesAll, clockAll, wtimeAll);
    } else {
        const double timesLap = static_cast<long>(timesNew - time->timesLast) / tick;
        const double clockLap = static_cast<long>(clockNew - time->clockLast) / 1000000.0;
        const double wtimeLap = wtimeNew - time->wtimeLast;
        comTrace(handle, " - times %.3fs/%.3fs clock %.3fs/%.3fs omtime %.3fs/%.3fs", timesLap,
                 timesAll, clockLap, clockAll, wtimeLap, wtimeAll);
    }
    time->timesLast = timesNew;
    time->clockLast = clockNew;
    time->wtimeLast = wtimeNew;
}
