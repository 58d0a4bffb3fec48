#include "TestEngine.h"
#include "TestMain.h"

#include "FakeLoginManager.h"

void TestEngine::initTestCase()
{
    // Offered as the system bus before anything in this process uses one, so
    // every connection in these tests takes and gives back a real lock.
    m_loginManager = FakeLoginManager::start(&m_noLoginManager);
}

void TestEngine::cleanupTestCase()
{
    delete m_loginManager;
    m_loginManager = nullptr;
}

QUENVAR_TEST_MAIN(TestEngine)
