// Running a factorisation under capture, for the ILU tests.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
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

// The factorisation and its reference must agree in result, factors (bits), output and error
// lines.
inline void expectSameAsReference(IluFn fast, IluFn reference, KwilHandle* h, const ComLinMat& a,
                                  const std::string& what)
{
    Factors f = factorise(fast, h, a);
    Factors r = factorise(reference, h, a);
    ASSERT_EQ(f.ok, r.ok) << what;
    EXPECT_EQ(f.out, r.out) << what;
    EXPECT_EQ(f.err, r.err) << what;
    if (f.ok == 0 || r.ok == 0)
        return;
    EXPECT_TRUE(sameBits(*f.l, *r.l)) << what << ": L differs";
    EXPECT_TRUE(sameBits(*f.u, *r.u)) << what << ": U differs";
}

// The factors of the complex copy of a real matrix (fc) match those of the real one (fr): same
// pattern, zero imaginary parts, real parts equal up to the rounding of the complex quotient
// (a b) / (b b), which can differ from a / b in the last bit and is magnified by cancellation
// relative to small entries.
inline void expectComplexMatchesReal(const Factors& fr, const Factors& fc)
{
    for (auto pair :
         {std::make_pair(fr.l.get(), fc.l.get()), std::make_pair(fr.u.get(), fc.u.get())}) {
        const auto er = entries(*pair.first), ec = entries(*pair.second);
        ASSERT_EQ(er.size(), ec.size());
        for (size_t p = 0; p < er.size(); ++p) {
            EXPECT_EQ(er[p].row, ec[p].row);
            EXPECT_EQ(er[p].col, ec[p].col);
            EXPECT_EQ(ec[p].v.imag(), 0.0);
            EXPECT_NEAR(ec[p].v.real(), er[p].v.real(), 1e-13 * std::max(1.0, std::abs(er[p].v)));
        }
    }
}

} // namespace prectest
