#include "state/matrix_types.h"

#include "analysis/symbolic.h"

double operation_count(const supernodal_structure *s, int64_t matrix_type)
{
    matrix_type_row type = matrix_type_rows[0];
    for (const matrix_type_row &row : matrix_type_rows)
        if (row.code == matrix_type) type = row;

    /* A column with r rows below its diagonal is divided by its pivot and updates the r by r square behind it, or half of that. */
    double products = 0, sums = 0;
    for (int64_t number = 1; number <= s->supernodes; ++number) {
        const int64_t columns = supernode_columns(*s, number), rows = supernode_rows(*s, number);
        for (int64_t k = 1; k <= columns; ++k) {
            const double r = static_cast<double>(rows - k);
            const double pairs = type.kind == factor_kind::lu ? r * r : 0.5 * r * (r + 1);
            products += r + pairs;
            sums += pairs;
        }
    }
    const double count = type.element_words == 2 ? 6 * products + 2 * sums : products + sums;
    return count * 1e-6;
}
