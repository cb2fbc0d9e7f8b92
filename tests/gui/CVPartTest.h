#pragma once

#include "Browsing/CVSelectionModel.h"
#include "CVTestEnvironment.h"
#include "Library/CVLibraryManager.h"

#include <memory>

// What a test of one window part stands on, without the window: a test environment with its
// settings, a library manager and, for parts that listen to one, the selection model serving as
// the library's panes. A test sets its own part up after setUpParts and takes it down before
// tearDownParts, which goes in the reverse order.
class CVPartTest {
protected:
    enum class Model { None, Selection };

    void setUpParts(Model model)
    {
        m_env = std::make_unique<CVTestEnvironment>();
        m_settings = &m_env->settings();
        m_library = std::make_unique<CVLibraryManager>(m_settings);
        if (model == Model::Selection) {
            m_model = std::make_unique<CVSelectionModel>(m_library.get());
            m_library->setPanes(m_model.get());
        }
    }

    void tearDownParts()
    {
        m_library->setPanes(nullptr);
        m_model.reset();
        m_library.reset();
        m_settings = nullptr;
        m_env.reset();
    }

    std::unique_ptr<CVTestEnvironment> m_env;
    CVSettings *m_settings = nullptr;
    std::unique_ptr<CVLibraryManager> m_library;
    std::unique_ptr<CVSelectionModel> m_model;
};
