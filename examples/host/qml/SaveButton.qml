import QtQuick 2.15
import QtQuick.Controls 2.15
import Qt.labs.platform 1.1 as Platform

// Asks where to save.
Button {
    id: button

    property alias suffix: dialog.defaultSuffix
    property alias nameFilters: dialog.nameFilters

    signal chosen(url target)

    text: qsTr("Save as…")
    icon.source: "qrc:/host/icons/save.svg"
    onClicked: dialog.open()

    ToolTip.text: "Ctrl+S"
    ToolTip.visible: hovered
    ToolTip.delay: 600

    Shortcut {
        sequences: [StandardKey.Save]
        enabled: button.visible && button.enabled
        onActivated: dialog.open()
    }

    Platform.FileDialog {
        id: dialog

        fileMode: Platform.FileDialog.SaveFile
        onAccepted: button.chosen(file)
    }
}
