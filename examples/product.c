/* Reads a real symmetric matrix from a Matrix Market file, multiplies it by a vector with wkl_dcsrsymv_driver, and checks every entry
   of the result against a sum over the entries of the file.

       cc product.c $(pkg-config --cflags --libs wkldriver) -lm -o product && ./product matrix.mtx */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <wkldriver.h>

/* The lower triangle as it stands in the file: entry k is (row[k], column[k], value[k]), numbers from 1. */
struct triplets {
    int64_t n, count, *row, *column;
    double *value;
};

static int read_triplets(const char *name, struct triplets *t)
{
    char line[1024];
    long long n = 0, columns = 0, count = 0, i = 0, j = 0;
    FILE *file = fopen(name, "r");
    if (file == NULL || fgets(line, sizeof line, file) == NULL || strstr(line, "coordinate real symmetric") == NULL) return 0;
    do {
        if (fgets(line, sizeof line, file) == NULL) return 0;
    } while (line[0] == '%');
    if (sscanf(line, "%lld %lld %lld", &n, &columns, &count) != 3 || n != columns || n < 1 || count < 1) return 0;
    t->n = n;
    t->count = count;
    t->row = malloc((size_t)count * sizeof(int64_t));
    t->column = malloc((size_t)count * sizeof(int64_t));
    t->value = malloc((size_t)count * sizeof(double));
    if (t->row == NULL || t->column == NULL || t->value == NULL) return 0;
    for (int64_t k = 0; k < t->count; ++k) {
        if (fscanf(file, "%lld %lld %lf", &i, &j, &t->value[k]) != 3 || i < j || j < 1 || i > n) return 0;
        t->row[k] = i;
        t->column[k] = j;
    }
    fclose(file);
    return 1;
}

/* Compressed rows by counting: ia[i] counts row i, then points behind it, then at its first entry. */
static void compress_rows(const struct triplets *t, double *a, int64_t *ia, int64_t *ja)
{
    memset(ia, 0, (size_t)(t->n + 1) * sizeof(int64_t));
    for (int64_t k = 0; k < t->count; ++k) ++ia[t->row[k] - 1];
    for (int64_t i = 1; i <= t->n; ++i) ia[i] += ia[i - 1];
    for (int64_t k = t->count - 1; k >= 0; --k) {
        const int64_t place = --ia[t->row[k] - 1];
        a[place] = t->value[k];
        ja[place] = t->column[k];
    }
    for (int64_t i = 0; i <= t->n; ++i) ++ia[i];
}

/* Largest difference to the plain sum, in units of |A| |x|. */
static double largest_difference(const struct triplets *t, const double *x, const double *y, double *sum, double *size)
{
    double worst = 0.0;
    for (int64_t i = 0; i < t->n; ++i) sum[i] = size[i] = 0.0;
    for (int64_t k = 0; k < t->count; ++k) {
        const int64_t i = t->row[k] - 1, j = t->column[k] - 1;
        sum[i] += t->value[k] * x[j];
        size[i] += fabs(t->value[k] * x[j]);
        if (i == j) continue;
        sum[j] += t->value[k] * x[i];
        size[j] += fabs(t->value[k] * x[i]);
    }
    for (int64_t i = 0; i < t->n; ++i)
        if (!(fabs(y[i] - sum[i]) <= worst * size[i])) worst = fabs(y[i] - sum[i]) / size[i];
    return worst;
}

int main(int argc, char **argv)
{
    struct triplets t = {0, 0, NULL, NULL, NULL};
    if (argc != 2 || !read_triplets(argv[1], &t)) {
        fprintf(stderr, "usage: product matrix.mtx (coordinate real symmetric)\n");
        return 2;
    }
    const size_t n = (size_t)t.n, count = (size_t)t.count;
    int64_t *ia = malloc((n + 1) * sizeof(int64_t)), *ja = malloc(count * sizeof(int64_t));
    double *a = malloc(count * sizeof(double)), *vectors = malloc(4 * n * sizeof(double));
    if (ia == NULL || ja == NULL || a == NULL || vectors == NULL) return 2;
    double *x = vectors, *y = vectors + n, *sum = vectors + 2 * n, *size = vectors + 3 * n;
    compress_rows(&t, a, ia, ja);
    for (size_t i = 0; i < n; ++i) x[i] = 1.0 + (double)(i % 7) / 8.0;

    wkl_dcsrsymv_driver("L", &t.n, a, ia, ja, x, y, 1);

    const double worst = largest_difference(&t, x, y, sum, size);
    printf("%s: %lld rows, %lld stored entries, y[1] = %.12g, largest difference %.2g of |A| |x|\n", argv[1], (long long)t.n,
           (long long)t.count, y[0], worst);
    free(vectors);
    free(a);
    free(ja);
    free(ia);
    free(t.value);
    free(t.column);
    free(t.row);
    puts(worst < 1e-14 ? "result checked" : "RESULT IS WRONG");
    return worst < 1e-14 ? 0 : 1;
}
