// Optional group: the solvers on real-world matrices from the folder named by KWIL_MATRIX_DIR
// (skipped when it is unset). Each listed matrix is one the solver is expected to solve with
// ILU(0) from the right; the test checks the true residual of the answer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "file/file.h"
#include "iter_support.h"

using namespace itertest;

namespace {

struct Case {
    const char* file; // path below the matrix folder
    const char* name; // solver name in its lines
    Solver fn;
    const char* opts;
};

const Case cases[] = {
    {"real/Dubcova1.mtx", "stab", solvIterStab, ""},
    {"real/Dubcova1.mtx", "safe", solvIterSafe, ""},
    {"real/bcsstk13.mtx", "stab", solvIterStab, ""},
    {"real/cryg2500.mtx", "stab", solvIterStab, ""},
    {"complex/qc324.mtx", "stab", solvIterStab, ""},
    {"complex/qc324.mtx", "stab-l", solvIterStabL, ""},
    {"complex/mhd1280b.mtx", "stab", solvIterStab, ""},
    {"complex/mhd1280b.mtx", "stab-l", solvIterStabL, ""},
    {"complex/qc324.mtx", "stab-l", solvIterStabL, "STABL_L 4\n"},
};

class RealMatrix : public ::testing::TestWithParam<Case> {};

TEST_P(RealMatrix, SolvesToTheTolerance)
{
    const char* dir = getenv("KWIL_MATRIX_DIR");
    if (dir == nullptr || *dir == '\0')
        GTEST_SKIP() << "KWIL_MATRIX_DIR is not set";
    const std::string path = std::string(dir) + "/" + GetParam().file;
    if (!std::ifstream(path))
        GTEST_SKIP() << path << " is missing";

    kwiltest::TempDir tmp;
    KwilHandle* h;
    {
        kwiltest::Capture quiet;
        h = kwiltest::makeHandle(tmp, "TRACE 1\n" + std::string(GetParam().opts));
    }
    ASSERT_NE(h, nullptr);
    ComLinMat* a;
    {
        kwiltest::Capture quiet;
        a = comFileMatRead(h, path.c_str());
        ASSERT_NE(a, nullptr);
        ASSERT_EQ(comLinMatChangeType(h, a, MAT_CSR), 1);
    }
    const bool cplx = a->dataType == LIN_COMP;
    std::vector<Cplx> xs(a->size);
    for (int i = 0; i < a->size; ++i)
        xs[i] = Cplx(1.0, cplx ? -0.5 : 0.0);
    const std::vector<Cplx> bv = product(a, xs);
    ComLinVec* b = vec(h, cplx, bv);
    ComLinVec* x = comLinVecCreateInit(h, a->dataType, a->size, ComComplex{0.0, 0.0});

    kwiltest::Capture cap;
    const int result = GetParam().fn(h, a, b, x);
    cap.take();
    EXPECT_EQ(result, 1) << cap.err();
    const EndLine e = endLine(cap.outLines(), GetParam().name);
    EXPECT_TRUE(e.found);
    EXPECT_LE(e.norm, e.tol);
    EXPECT_LT(relResidual(a, bv, values(x)), 1e-8) << "after " << e.step << " steps";
    comLinVecDelete(h, b);
    comLinVecDelete(h, x);
    comLinMatDelete(h, a);
    kwilTerm(h);
}

INSTANTIATE_TEST_SUITE_P(Files, RealMatrix, ::testing::ValuesIn(cases),
                         [](const ::testing::TestParamInfo<Case>& i) {
                             std::string s = std::string(i.param.file) + "_" + i.param.name + "_" +
                                             i.param.opts;
                             for (char& c : s)
                                 if (!isalnum(static_cast<unsigned char>(c)))
                                     c = '_';
                             return s;
                         });

} // namespace
