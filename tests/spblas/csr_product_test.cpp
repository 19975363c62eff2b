/* All forms of the product against a dense one, in the four value types. */
#include "spblas_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

namespace
{

template <typename value_t>
using real_of = decltype(std::abs(value_t()));

template <typename value_t>
value_t conjugated(value_t v)
{
    if constexpr (std::is_floating_point_v<value_t>)
        return v;
    else
        return std::conj(v);
}

/* The matrix that a form means, dense and row-major, op not applied. */
template <typename value_t>
std::vector<value_t> dense_meaning(const csr_form &form, const csr_matrix<value_t> &s)
{
    std::vector<value_t> d(static_cast<size_t>(s.m * s.k), value_t(0));
    const auto at = [&](int64_t i, int64_t j) -> value_t & { return d[static_cast<size_t>((i - 1) * s.k + j - 1)]; };
    const bool general = form.structure == csr_structure::general;
    const bool unit = form.diagonal == csr_diagonal::unit && !general && form.structure != csr_structure::antisymmetric;
    for (int64_t i = 1; i <= s.m; ++i) {
        if (unit) at(i, i) = value_t(1);
        for (int64_t p = s.ia[static_cast<size_t>(i - 1)] - s.ia[0]; p < s.ia[static_cast<size_t>(i)] - s.ia[0]; ++p) {
            const int64_t c = s.ja[static_cast<size_t>(p)];
            const value_t v = s.a[static_cast<size_t>(p)];
            const bool inside = form.triangle == csr_triangle::upper ? c > i : c < i;
            if (general)
                at(i, c) += v;
            else if (c == i)
                at(i, i) += unit || form.structure == csr_structure::antisymmetric ? value_t(0) : v;
            else if (inside && form.structure != csr_structure::diagonal) {
                at(i, c) += v;
                if (form.structure == csr_structure::symmetric) at(c, i) += v;
                if (form.structure == csr_structure::antisymmetric) at(c, i) -= v;
                if (form.structure == csr_structure::hermitian) at(c, i) += conjugated(v);
            }
        }
    }
    return d;
}

template <typename value_t>
struct case_data {
    csr_form form;
    csr_matrix<value_t> s;
    value_t alpha, beta;
    std::vector<value_t> x, y; /* y as it was before */
};

template <typename value_t>
std::vector<value_t> dense_product(const case_data<value_t> &q)
{
    const std::vector<value_t> d = dense_meaning(q.form, q.s);
    const bool transposed = q.form.operation != csr_operation::none;
    std::vector<value_t> y(q.y.size());
    for (size_t i = 0; i < y.size(); ++i) {
        value_t sum = 0;
        for (size_t j = 0; j < q.x.size(); ++j) {
            const size_t k = static_cast<size_t>(q.s.k);
            const value_t v = transposed ? d[j * k + i] : d[i * k + j];
            sum += (q.form.operation == csr_operation::conjugate_transpose ? conjugated(v) : v) * q.x[j];
        }
        y[i] = q.alpha * sum + (q.beta == value_t(0) ? value_t(0) : q.beta * q.y[i]);
    }
    return y;
}

template <typename value_t>
void make_diagonal_real(csr_matrix<value_t> *s)
{
    for (size_t i = 0; i < static_cast<size_t>(s->m); ++i) {
        for (auto p = static_cast<size_t>(s->ia[i] - s->ia[0]); p < static_cast<size_t>(s->ia[i + 1] - s->ia[0]); ++p) {
            if (s->ja[p] == static_cast<int64_t>(i) + 1) s->a[p] = std::real(s->a[p]);
        }
    }
}

template <typename value_t>
case_data<value_t> make_case(const csr_form &form, int64_t m, int64_t k, bool zero_beta)
{
    std::mt19937_64 random(static_cast<uint64_t>(m) * 17 + static_cast<uint64_t>(k));
    case_data<value_t> q = {form, random_matrix<value_t>(m, k, 1, 5), random_value<value_t>(&random), value_t(0), {}, {}};
    if (form.structure == csr_structure::hermitian) make_diagonal_real(&q.s);
    const bool transposed = form.operation != csr_operation::none;
    q.x = random_vector<value_t>(transposed ? m : k, 6);
    q.y = random_vector<value_t>(transposed ? k : m, 7);
    if (zero_beta)
        std::fill(q.y.begin(), q.y.end(), std::numeric_limits<real_of<value_t>>::quiet_NaN());
    else
        q.beta = random_value<value_t>(&random);
    return q;
}

/* The largest difference between the product and the dense one; a NaN counts as infinite. */
template <typename value_t>
double error_of(const case_data<value_t> &q, const std::vector<value_t> &y)
{
    const std::vector<value_t> expected = dense_product(q);
    double worst = 0.0;
    for (size_t i = 0; i < y.size(); ++i) {
        const double difference = std::abs(y[i] - expected[i]);
        worst = difference <= worst ? worst : difference == difference ? difference : 1e300;
    }
    return worst;
}

/* Rows stored apart from each other, in reverse order, poison between them. */
template <typename value_t>
csr_matrix<value_t> scattered_rows(const csr_matrix<value_t> &s, std::vector<int64_t> *pntrb, std::vector<int64_t> *pntre)
{
    csr_matrix<value_t> r = {s.m, s.k, {}, {}, {}};
    pntrb->assign(static_cast<size_t>(s.m), 0);
    pntre->assign(static_cast<size_t>(s.m), 0);
    const int64_t base = s.m > 0 ? 1 : 0;
    for (int64_t turn = 0; turn < s.m; ++turn) { /* row 1 stands first, since its pointer is the base */
        const size_t i = static_cast<size_t>(turn == 0 ? 0 : s.m - turn);
        (*pntrb)[i] = base + static_cast<int64_t>(r.ja.size());
        for (int64_t p = s.ia[i] - s.ia[0]; p < s.ia[i + 1] - s.ia[0]; ++p) {
            r.ja.push_back(s.ja[static_cast<size_t>(p)]);
            r.a.push_back(s.a[static_cast<size_t>(p)]);
        }
        (*pntre)[i] = base + static_cast<int64_t>(r.ja.size());
        r.ja.push_back(INT64_MIN / 4);
        r.a.push_back(std::numeric_limits<real_of<value_t>>::quiet_NaN());
    }
    return r;
}

template <typename value_t>
struct csr_product_of : testing::Test {
};
using value_types = testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(csr_product_of, value_types);

std::vector<csr_form> all_forms()
{
    std::vector<csr_form> forms;
    using enum csr_structure;
    for (const auto structure : {general, symmetric, antisymmetric, hermitian, triangular, diagonal})
        for (const auto triangle : {csr_triangle::lower, csr_triangle::upper})
            for (const auto diag : {csr_diagonal::stored, csr_diagonal::unit})
                for (const auto op : {csr_operation::none, csr_operation::transpose, csr_operation::conjugate_transpose})
                    forms.push_back({structure, triangle, diag, op});
    return forms;
}

} // namespace

TYPED_TEST(csr_product_of, agrees_with_a_dense_product_in_every_form)
{
    const double tolerance = 40 * std::numeric_limits<real_of<TypeParam>>::epsilon();
    for (const int threads : {1, 3}) {
        use_threads(threads);
        for (const csr_form &form : all_forms()) {
            for (const auto &[m, k] : {std::pair<int64_t, int64_t>{0, 0}, {1, 1}, {2, 2}, {61, 61}, {40, 73}, {73, 40}}) {
                if (form.structure != csr_structure::general && m != k) continue;
                for (const bool zero_beta : {true, false}) {
                    const auto q = make_case<TypeParam>(form, m, k, zero_beta);
                    std::vector<TypeParam> y = q.y;
                    csr_product(form, m, k, q.alpha, q.s.a.data(), q.s.ja.data(), q.s.ia.data(), q.s.ia.data() + 1, q.x.data(), q.beta,
                                y.data());
                    ASSERT_LE(error_of(q, y), tolerance)
                        << int(form.structure) << int(form.triangle) << int(form.diagonal) << int(form.operation) << " " << m << " " << k;
                    std::vector<int64_t> pntrb, pntre;
                    const auto r = scattered_rows(q.s, &pntrb, &pntre);
                    if (m == 0) continue;
                    std::vector<TypeParam> z = q.y;
                    csr_product(form, m, k, q.alpha, r.a.data(), r.ja.data(), pntrb.data(), pntre.data(), q.x.data(), q.beta, z.data());
                    ASSERT_EQ(std::memcmp(y.data(), z.data(), y.size() * sizeof(TypeParam)), 0) << "rows stored apart";
                }
            }
        }
    }
}

TEST(csr_product_threads, full_vectors_repeat_their_bits_and_fall_back_when_memory_is_short)
{
    const csr_form form = {csr_structure::general, csr_triangle::lower, csr_diagonal::stored, csr_operation::transpose};
    const auto q = make_case<double>(form, 3000, 1700, false);
    const auto run = [&](int threads) {
        use_threads(threads);
        std::vector<double> y = q.y;
        csr_product(form, q.s.m, q.s.k, q.alpha, q.s.a.data(), q.s.ja.data(), q.s.ia.data(), q.s.ia.data() + 1, q.x.data(), q.beta,
                    y.data());
        return y;
    };
    const std::vector<double> serial = run(1), four = run(4);
    for (int turn = 0; turn < 20; ++turn) ASSERT_EQ(run(4), four);
    const auto original = service_system.allocate;
    service_system.allocate = [](uint64_t) -> void * { return nullptr; };
    const std::vector<double> starved = run(4);
    service_system.allocate = original;
    EXPECT_EQ(starved, serial);
    EXPECT_NE(four, serial);
}

TEST(csr_multiply_of, understands_letters_and_refuses_others)
{
    using complex = std::complex<double>;
    use_threads(2);
    const csr_matrix<complex> s = random_matrix<complex>(50, 50, 1, 9);
    const std::vector<complex> x = random_vector<complex>(50, 8);
    const auto run = [&](const char *transa, const char *descriptor, std::vector<complex> *y) {
        y->assign(50, complex(7));
        return csr_multiply<complex>(transa, descriptor, 50, 50, complex(1), s.a.data(), s.ja.data(), s.ia.data(), s.ia.data() + 1,
                                     x.data(), complex(0), y->data());
    };
    std::vector<complex> symmetric, y;
    EXPECT_EQ(run("N", "SUNF", &symmetric), 0);
    EXPECT_EQ(run("t", "hunf", &y), 0); /* H acts as S */
    EXPECT_EQ(y, symmetric);
    EXPECT_EQ(run("N", "SLNF", &y), 0);
    EXPECT_NE(y, symmetric);
    EXPECT_EQ(run("N", "SUUF", &y), 0);
    EXPECT_NE(y, symmetric);
    const std::pair<const char *, const char *> refused[] = {{"X", "GUNF"}, {"N", "QUNF"}, {"N", "GUNC"}};
    for (const auto &[transa, descriptor] : refused) {
        EXPECT_EQ(run(transa, descriptor, &y), *transa == 'X' ? 1 : 2);
        EXPECT_EQ(y, std::vector<complex>(50, complex(7)));
    }
}

TEST(csr_drivers_by_name, are_the_forms_that_their_letters_say)
{
    const struct {
        const char *letters;
        csr_driver *driver;
    } drivers[] = {
#define DRIVER(letters) {#letters, wkl_spblas_dcsr1##letters##f__mvout_omp}
        DRIVER(ng__), DRIVER(tg__), DRIVER(nal_), DRIVER(nau_), DRIVER(nsln), DRIVER(nsun),
        DRIVER(nslu), DRIVER(nsuu), DRIVER(ntln), DRIVER(ntlu), DRIVER(ntun), DRIVER(ntuu),
#undef DRIVER
    };
    using enum csr_structure;
    use_threads(2);
    for (const auto &[letters, driver] : drivers) {
        const csr_form form = {letters[1] == 'g'   ? general
                               : letters[1] == 'a' ? antisymmetric
                               : letters[1] == 's' ? symmetric
                                                   : triangular,
                               letters[2] == 'u' ? csr_triangle::upper : csr_triangle::lower,
                               letters[3] == 'u' ? csr_diagonal::unit : csr_diagonal::stored,
                               letters[0] == 't' ? csr_operation::transpose : csr_operation::none};
        const auto q = make_case<double>(form, 70, form.structure == general ? 50 : 70, false);
        std::vector<double> y = q.y;
        driver(&q.s.m, &q.s.k, &q.alpha, q.s.a.data(), q.s.ja.data(), q.s.ia.data(), q.s.ia.data() + 1, q.x.data(), y.data(), &q.beta);
        EXPECT_LE(error_of(q, y), 1e-13) << letters;
    }
}
