// The fixed and variable vector API, one suite run for each of the two vectors.
#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <string>

#include "api/kwil.h"
#include "common/com.h"
#include "lin/lin.h"
#include "support/support.h"

using kwiltest::Capture;
using kwiltest::TempDir;

namespace {

// The six functions of one vector, its handle field and the word of its messages.
struct VecApi {
    const char* word;
    ComLinVec* KwilHandle::*field;
    int (*create)(KwilHandle*, int, int, double, double);
    int (*info)(KwilHandle*, int*, int*);
    int (*set)(KwilHandle*, int, double, double);
    int (*get)(KwilHandle*, int, double*, double*);
    int (*fileRead)(KwilHandle*, const char*);
    int (*fileWrite)(KwilHandle*, const char*);
};

const VecApi fixApi{"fix",         &KwilHandle::vecFix, kwilVecFixCreate,   kwilVecFixInfo,
                    kwilVecFixSet, kwilVecFixGet,       kwilVecFixFileRead, kwilVecFixFileWrite};
const VecApi varApi{"var",         &KwilHandle::vecVar, kwilVecVarCreate,   kwilVecVarInfo,
                    kwilVecVarSet, kwilVecVarGet,       kwilVecVarFileRead, kwilVecVarFileWrite};

class VecApiTest : public testing::TestWithParam<VecApi> {
  protected:
    void SetUp() override { h = kwiltest::makeHandle(dir); }
    void TearDown() override { kwilTerm(h); }

    const VecApi& api() const { return GetParam(); }
    ComLinVec* vec() const { return h->*api().field; }
    ComLinVec* other() const { return api().field == &KwilHandle::vecFix ? h->vecVar : h->vecFix; }
    void drop()
    {
        comLinVecDelete(h, h->*api().field);
        h->*api().field = nullptr;
    }
    // The text with "%w" replaced by the vector's word and "%p" by p.
    std::string msg(std::string text, const std::string& p = "") const
    {
        for (size_t at; (at = text.find("%w")) != std::string::npos;)
            text.replace(at, 2, api().word);
        for (size_t at; (at = text.find("%p")) != std::string::npos;)
            text.replace(at, 2, p);
        return text;
    }
    std::string err(const std::function<void()>& fn)
    {
        Capture cap;
        fn();
        cap.take();
        return cap.err();
    }

    TempDir dir;
    KwilHandle* h = nullptr;
};

} // namespace

TEST_P(VecApiTest, CreateInfoSetGet)
{
    ASSERT_EQ(api().create(h, 0, 3, 1.5, 9.0), 1);
    EXPECT_EQ(other(), nullptr); // only this vector's field is touched
    int flag = -1, size = -1;
    ASSERT_EQ(api().info(h, &flag, &size), 1);
    EXPECT_EQ(flag, 0);
    EXPECT_EQ(size, 3);
    double re = 0, im = 7;
    ASSERT_EQ(api().get(h, 2, &re, &im), 1);
    EXPECT_EQ(re, 1.5);
    EXPECT_EQ(im, 0.0);                       // a real vector returns 0.0
    ASSERT_EQ(api().set(h, 1, -2.0, 5.0), 1); // the imaginary part is ignored
    ASSERT_EQ(api().get(h, 1, &re, &im), 1);
    EXPECT_EQ(re, -2.0);
    EXPECT_EQ(im, 0.0);

    ASSERT_EQ(api().create(h, 5, 2, 1.0, -1.0), 1); // flag 5 is complex
    ASSERT_EQ(api().info(h, &flag, &size), 1);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(size, 2);
    ASSERT_EQ(api().get(h, 0, &re, &im), 1);
    EXPECT_EQ(im, -1.0);
    ASSERT_EQ(api().set(h, 1, 3.0, 4.0), 1);
    ASSERT_EQ(api().get(h, 1, &re, &im), 1);
    EXPECT_EQ(re, 3.0);
    EXPECT_EQ(im, 4.0);
    EXPECT_EQ(vec()->compData[3], 4.0);
}

TEST_P(VecApiTest, MissingVectorAndBoundsMessages)
{
    int flag = 0, size = 0;
    double re = 0, im = 0;
    EXPECT_EQ(err([&] { EXPECT_EQ(api().info(h, &flag, &size), 0); }),
              msg("KWILERR: No data in get %w vec info\n"));
    EXPECT_EQ(err([&] { EXPECT_EQ(api().set(h, 0, 1, 1), 0); }),
              msg("KWILERR: No data in set %w vec\n"));
    EXPECT_EQ(err([&] { EXPECT_EQ(api().get(h, 0, &re, &im), 0); }),
              msg("KWILERR: No data in get %w vec\n"));
    EXPECT_EQ(err([&] { EXPECT_EQ(api().fileWrite(h, "v.mtx"), 0); }),
              msg("KWILERR: No data in write %w vec file 'v.mtx'\n"));

    ASSERT_EQ(api().create(h, 1, 3, 1.0, 2.0), 1);
    EXPECT_EQ(err([&] { EXPECT_EQ(api().set(h, 3, 9, 9), 0); }),
              msg("KWILERR: Invalid pos 3 in set %w vec\n"));
    EXPECT_EQ(err([&] { EXPECT_EQ(api().set(h, INT_MIN, 9, 9), 0); }),
              msg("KWILERR: Invalid pos -2147483648 in set %w vec\n"));
    re = im = 42;
    EXPECT_EQ(err([&] { EXPECT_EQ(api().get(h, -1, &re, &im), 0); }),
              msg("KWILERR: Invalid pos -1 in get %w vec\n"));
    EXPECT_EQ(re, 42.0); // out-parameters untouched
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(api().get(h, i, &re, &im), 1);
        EXPECT_EQ(re, 1.0);
        EXPECT_EQ(im, 2.0);
    }
}

TEST_P(VecApiTest, NegativeSizeIsRefused)
{
    ASSERT_EQ(api().create(h, 0, 2, 0, 0), 1);
    EXPECT_EQ(err([&] { EXPECT_EQ(api().create(h, 0, -1, 0, 0), 0); }),
              msg("KWILERR: Allocation error\n"
                  "KWILERR: Real data allocation error in matrix create\n"
                  "KWILERR: Create error in create %w vec\n"));
    EXPECT_EQ(vec(), nullptr);
    EXPECT_EQ(err([&] { EXPECT_EQ(api().create(h, 3, INT_MIN, 0, 0), 0); }),
              msg("KWILERR: Allocation error\n"
                  "KWILERR: Comp data allocation error in matrix create\n"
                  "KWILERR: Create error in create %w vec\n"));
    EXPECT_EQ(vec(), nullptr);
    ASSERT_EQ(api().create(h, 0, 0, 0, 0), 1); // an empty vector is fine
}

TEST_P(VecApiTest, FilesRoundTripBitForBit)
{
    ASSERT_EQ(api().create(h, 1, 3, 0, 0), 1);
    const double values[6] = {0.1, -1e-310, 1e308, -0.0, 3.141592653589793, 2.5e-5};
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(api().set(h, i, values[2 * i], values[2 * i + 1]), 1);
    const std::string p = dir.path("v.mtx");
    ASSERT_EQ(api().fileWrite(h, p.c_str()), 1);
    ASSERT_EQ(api().create(h, 0, 1, 0, 0), 1);
    ASSERT_EQ(api().fileRead(h, p.c_str()), 1);
    int flag = 0, size = 0;
    ASSERT_EQ(api().info(h, &flag, &size), 1);
    EXPECT_EQ(flag, 1);
    ASSERT_EQ(size, 3);
    EXPECT_EQ(memcmp(vec()->compData, values, sizeof values), 0);

    const std::string bad =
        dir.write("b.mtx", "%%MatrixMarket matrix array real general\n2 1\n1\n");
    EXPECT_EQ(err([&] { EXPECT_EQ(api().fileRead(h, bad.c_str()), 0); }),
              msg("KWILERR: Too few data in vec file read file='%p'\n"
                  "KWILERR: Read error in read %w vec file '%p'\n",
                  bad));
    EXPECT_EQ(vec(), nullptr);
    ASSERT_EQ(api().create(h, 0, 1, 0, 0), 1);
    EXPECT_EQ(err([&] { EXPECT_EQ(api().fileWrite(h, dir.path("no/v.mtx").c_str()), 0); }),
              "KWILERR: Open error in vec file read, write='" + dir.path("no/v.mtx") + "'\n");
}

TEST_P(VecApiTest, EveryAllocationFailureLeavesTheFieldEmpty)
{
    const std::string p =
        dir.write("v.mtx", "%%MatrixMarket matrix array complex general\n2 1\n1 2\n3 4\n");
    for (int flag : {0, 1}) {
        EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                      const int ok = api().create(h, flag, 4, 1.0, 2.0);
                      EXPECT_EQ(ok == 1, vec() != nullptr);
                      drop();
                      return ok == 1;
                  }),
                  1);
    }
    EXPECT_GT(kwiltest::sweepAllocFailures([&] {
                  const int ok = api().fileRead(h, p.c_str());
                  EXPECT_EQ(ok == 1, vec() != nullptr);
                  drop();
                  return ok == 1;
              }),
              1);
    Capture cap;
    comTestFailAlloc(2);
    EXPECT_EQ(api().create(h, 1, 4, 0, 0), 0);
    comTestFailAlloc(0);
    cap.take();
    EXPECT_EQ(cap.err(), msg("KWILERR: Allocation error\n"
                             "KWILERR: Comp data allocation error in matrix create\n"
                             "KWILERR: Create error in create %w vec\n"));
}

INSTANTIATE_TEST_SUITE_P(BothVectors, VecApiTest, testing::Values(fixApi, varApi),
                         [](const testing::TestParamInfo<VecApi>& p) {
                             return std::string(p.param.word);
                         });
