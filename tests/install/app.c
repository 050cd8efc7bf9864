/* A host built against an installed kwil: creates a handle, reads an option back, releases it. */
#include <stdio.h>

#include <kwil.h>
#include <mmio.h>

int main(int argc, char** argv)
{
    int solver = -1;
    KwilHandle* h;
    if (argc != 2)
        return 2;
    h = kwilInit(KWIL_VERSION, argv[1]);
    if (h == NULL)
        return 1;
    if (!kwilGetOpt(h, "SOLVER", 1, &solver, NULL))
        return 1;
    kwilTerm(h);
    printf("installed kwil: SOLVER %d\n", solver);
    return 0;
}
