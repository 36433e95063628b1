#include "common/options.h"

options_t& options_t::GetInst() {
    static options_t instance;
    return instance;
}
