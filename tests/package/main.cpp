// Builds against the installed headers and library; exits non-zero on a mismatch.
#include <kelt/fem.h>

#include <cstdio>
#include <cstring>

int main()
{
    kelt::fem::context ctx;
    kelt::fem::DOFs_mgr dofs(2, true);
    const bool ok = std::strcmp(kelt::fem::version(), "4.4.0.0") == 0 && dofs.nbr_DOFs(true) == 18 &&
                    kelt::fem::DOFs_mgr::ID(1, kelt::temperature_tag, 0) == 15 && ctx.get_max_threads() >= 1;
    std::printf("package host: kelt %s %s\n", kelt::fem::version(), ok ? "found" : "MISMATCH");
    return ok ? 0 : 1;
}
