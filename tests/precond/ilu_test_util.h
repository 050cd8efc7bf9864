// Running a factorisation under capture, for the ILU tests.
#pragma once

#include <string>
#include <vector>

#include "precond/precond.h"
#include "precond_util.h"
#include "support/support.h"

namespace prectest {

using IluFn = int (*)(KwilHandle*, const ComLinMat*, ComLinMat**, ComLinMat**);

struct Factors {
    int ok = 0;
    Mat l;
    Mat u;
    std::vector<std::string> out;
    std::vector<std::string> err;
};

inline Factors factorise(IluFn fn, KwilHandle* h, const ComLinMat& a)
{
    Factors f;
    ComLinMat* l = nullptr;
    ComLinMat* u = nullptr;
    kwiltest::Capture cap;
    f.ok = fn(h, &a, &l, &u);
    cap.take();
    f.l.reset(l);
    f.u.reset(u);
    f.out = cap.outLines();
    f.err = cap.errLines();
    return f;
}

} // namespace prectest
