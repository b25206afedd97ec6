/* atplatform_cfg.h - the configuration store interface (declared by the store's implementation). */
#ifndef ATPLATFORM_CFG_H
#define ATPLATFORM_CFG_H
#endif
