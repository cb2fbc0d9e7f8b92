/* libplist's parse alone: reads the file, then times plist_from_xml only. */
#include <plist/plist.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

int main(int argc, char **argv)
{
    if (argc != 2) {
        fprintf(stderr, "usage: plist_parse FILE\n");
        return 2;
    }
    FILE *f = fopen(argv[1], "rb");
    if (!f) {
        perror(argv[1]);
        return 1;
    }
    fseek(f, 0, SEEK_END);
    long size = ftell(f);
    fseek(f, 0, SEEK_SET);
    char *data = malloc((size_t)size);
    if (!data || fread(data, 1, (size_t)size, f) != (size_t)size) {
        fprintf(stderr, "cannot read %s\n", argv[1]);
        return 1;
    }
    fclose(f);
    struct timespec a, b;
    clock_gettime(CLOCK_MONOTONIC, &a);
    plist_t root = NULL;
    plist_from_xml(data, (uint32_t)size, &root);
    clock_gettime(CLOCK_MONOTONIC, &b);
    if (!root) {
        fprintf(stderr, "libplist could not parse %s\n", argv[1]);
        return 1;
    }
    printf("%.3f\n", (double)(b.tv_sec - a.tv_sec) + (double)(b.tv_nsec - a.tv_nsec) / 1e9);
    return 0;
}
