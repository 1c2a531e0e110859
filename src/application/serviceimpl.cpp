#include "application/serviceimpl_p.h"

ServiceImpl::ServiceImpl(Service* service) : m_pService(service) {}

ServiceImpl::~ServiceImpl() = default;
