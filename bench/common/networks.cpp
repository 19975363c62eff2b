#include "assembly.h"
#include "generators.h"

#include <algorithm>
#include <cmath>
#include <random>

market_matrix saddle_point(int64_t n)
{
    const int64_t constraints = n / 3, unknowns = n - constraints;
    std::mt19937_64 random(12345);
    std::uniform_real_distribution<double> number(0.1, 1.0);
    assembly s;
    /* H: a five-point pattern on a strip; a third of the variables appear only through barrier terms, which span five decades. */
    const auto width = static_cast<int64_t>(std::sqrt(static_cast<double>(unknowns)));
    const auto tied = [](int64_t i) { return i % 3 != 0; };
    for (int64_t i = 1; i <= unknowns; ++i) {
        add(&s, i, i, (tied(i) ? 4.0 : 0.0) + std::pow(10.0, 6.0 * number(random) - 4.0));
        if (i > 1 && (i - 1) % width != 0 && tied(i) && tied(i - 1)) add(&s, i, i - 1, -1.0);
        if (i > width && tied(i) && tied(i - width)) add(&s, i, i - width, -1.0);
    }
    /* A: constraint c holds variable 2c with weight one, which gives full rank, and up to three others near it or anywhere before it. */
    for (int64_t c = 1; c <= constraints; ++c) {
        const int64_t row = unknowns + c, own = std::min(2 * c, unknowns);
        add(&s, row, own, 1.0);
        for (int e = 0; e < 3; ++e) {
            const int64_t reach = e < 2 ? 60 : own;
            const int64_t column = own - 1 - static_cast<int64_t>(random() % static_cast<uint64_t>(std::max<int64_t>(reach, 1)));
            if (column >= 1) add(&s, row, column, e % 2 == 0 ? number(random) : -number(random));
        }
    }
    return assembled(s, n, market_field::real, market_symmetry::symmetric);
}

/* A conductance between two nodes. */
static void stamp(assembly *s, int64_t i, int64_t j, double g)
{
    add(s, i, i, g);
    add(s, j, j, g);
    add(s, i, j, -g);
    add(s, j, i, -g);
}

market_matrix circuit(int64_t n)
{
    const int64_t sources = n / 50, nodes = n - sources;
    std::mt19937_64 random(4711);
    std::uniform_real_distribution<double> number(0.0, 1.0);
    assembly s;
    for (int64_t i = 1; i <= nodes; ++i) {
        add(&s, i, i, 1e-3); /* leak to ground */
        const int branches = 1 + static_cast<int>(random() % 3);
        for (int e = 0; e < branches && i > 1; ++e) {
            /* Mostly short wires; else a node that was there early: supply rails and clocks collect many branches. */
            const double u = number(random);
            int64_t j = u < 0.75 ? i - 1 - static_cast<int64_t>(random() % 20)
                                 : 1 + static_cast<int64_t>(std::pow(number(random), 4.0) * static_cast<double>(i - 1));
            j = std::clamp<int64_t>(j, 1, i - 1);
            stamp(&s, i, j, std::pow(10.0, 4.0 * number(random) - 2.0));
            if (number(random) < 0.1) add(&s, i, j, 5.0 * number(random)); /* a source controlled from the other end */
        }
    }
    for (int64_t v = 1; v <= sources; ++v) {
        const int64_t node = v * (nodes / (sources + 1)); /* each source at a node of its own */
        add(&s, nodes + v, node, 1.0);
        add(&s, node, nodes + v, 1.0);
    }
    return assembled(s, n, market_field::real, market_symmetry::general);
}
