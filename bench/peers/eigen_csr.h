// A matrix read by mm_read.h as an Eigen row-major sparse matrix, for the Eigen peers.
#pragma once

#include <Eigen/Sparse>
#include <complex>
#include <type_traits>
#include <vector>

#include "mm_read.h"

template <class S> Eigen::SparseMatrix<S, Eigen::RowMajor> eigenMatrix(const BenchCsr& a)
{
    std::vector<Eigen::Triplet<S>> t;
    t.reserve(a.nnz);
    for (int i = 0; i < a.n; ++i) {
        for (int p = a.rowPtr[i]; p < a.rowPtr[i + 1]; ++p) {
            if constexpr (std::is_same_v<S, double>) {
                t.emplace_back(i, a.colInd[p], a.val[p]);
            } else {
                t.emplace_back(i, a.colInd[p], S(a.val[2 * p], a.val[2 * p + 1]));
            }
        }
    }
    Eigen::SparseMatrix<S, Eigen::RowMajor> m(a.n, a.n);
    m.setFromTriplets(t.begin(), t.end());
    return m;
}
